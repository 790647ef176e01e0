/* Component objects: reference-counted objects whose interfaces are C function tables, looked
 * up by GUID text.
 *
 * A class is defined once by name with the size of its instance data and an optional destroy
 * function; interfaces are then added to it, each a GUID in the braced text form
 * "{D1D0261F-22CF-4E5D-822E-76B5DEC98AE4}" (letters in either case) and a pointer to a table
 * that the definer keeps alive and unchanged for the life of the process. Every table starts
 * with the common entries of XObjectMethods, so a holder of any interface can add references,
 * release and ask for other interfaces.
 *
 * An object handle is the address of the object's instance data: the methods of a class
 * receive it as their first argument and may read it as their own record. The instance data
 * starts zero-filled.
 *
 * Threads: defining classes and adding interfaces may be done from any thread; so may adding
 * and releasing references and querying interfaces. What an object's methods allow is up to
 * its class. */
#ifndef VEXOR_SYS_COMPONENT_H
#define VEXOR_SYS_COMPONENT_H

#include <stddef.h>

#include "vexor/export.h"
#include "vexor/failure.h"

VX_EXTERN_C_BEGIN

/* The longest class name, in bytes without the terminating null. */
#define XOBJECT_CLASS_NAME_MAX 63

/* Runs when an object's last reference is released, just before its memory is freed. It must
 * not fail and must not take new references to the object. */
typedef void (*XObjectDestroyFunc)(void *obj);

/* The entries every interface table starts with, in this order. They act on the object, not
 * on the interface: any of an object's tables reaches the same reference count. */
typedef struct XObjectMethods {
    /* Adds a reference; returns the new count. */
    unsigned int (*AddRef)(void *obj);
    /* Drops a reference; returns the new count. At 0 the object is destroyed and freed. */
    unsigned int (*Release)(void *obj);
    /* As XObjectQueryInterface. */
    unsigned int (*QueryInterface)(void *obj, const char *guid, void **out);
} XObjectMethods;

/* The common entries for a class's own tables:
 *     static const MyMethods methods = {XOBJECT_METHODS_INIT, MyFirst, MySecond};
 */
#define XOBJECT_METHODS_INIT \
    { XObjectAddRef, XObjectRelease, XObjectQueryInterface }

/* Defines a class. `size` bytes of instance data (may be 0) are allocated with every object;
 * `destroy` may be null. Defining a name again with the same size and destroy function does
 * nothing and succeeds, so concurrent first uses may all define it.
 * Returns VX_OK; VX_E_BADARG for a null or empty name or one longer than
 * XOBJECT_CLASS_NAME_MAX; VX_E_REFUSED when the name is defined with another size or destroy
 * function; VX_E_NOMEMORY. */
VX_API unsigned int XObjectDefineClass(const char *className, size_t size,
                                       XObjectDestroyFunc destroy);

/* Adds an interface to a class. The table starts with XObjectMethods, whose entries must all
 * be set; it must stay valid and unchanged for the life of the process. Adding the same GUID
 * with the same table again does nothing and succeeds.
 * Returns VX_OK; VX_E_NOTFOUND when the class is not defined; VX_E_BADARG for a malformed
 * GUID or a table whose common entries are not all set; VX_E_REFUSED when the class already
 * has the GUID with another table; VX_E_NOMEMORY. */
VX_API unsigned int XObjectAddInterface(const char *className, const char *guid, const void *table);

/* Makes an object of a class with one reference, its instance data zero-filled, into *out
 * (null on failure). Returns VX_OK; VX_E_NOTFOUND when the class is not defined; VX_E_BADARG
 * when out is null; VX_E_NOMEMORY. */
VX_API unsigned int XObjectAllocate(const char *className, void **out);

/* Reference counting. Null is ignored and gives 0. */
VX_API unsigned int XObjectAddRef(void *obj);
VX_API unsigned int XObjectRelease(void *obj);

/* Looks up an interface of the object by GUID text, in either case. On success *out is the
 * interface's table (read-only) and the object has one more reference, which the caller
 * releases. Returns VX_OK; VX_E_NOTFOUND when the object has no such interface; VX_E_BADARG
 * for a null object, out or GUID, or a malformed GUID. *out is null on failure. */
VX_API unsigned int XObjectQueryInterface(void *obj, const char *guid, void **out);

/* The name of the object's class (valid for the life of the process); null for null. */
VX_API const char *XObjectClassName(const void *obj);

VX_EXTERN_C_END

#endif
