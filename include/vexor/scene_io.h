/* Scene files: saving a scene with its items and actions, and loading it back as a new scene.
 *
 * A scene file is a block stream (vexor/block.h) holding one scene block: the items with their
 * types, names, add-on packages, tags, hidden state, parents and sources, then the chunks of
 * the modules that keep data about the scene (the actions with their entries, constants and
 * envelopes). The layout is in docs/formats.md, "Scene files". Types and packages are stored by
 * name, so a file loads in a session whose type codes differ. The file pattern is "*.vxr".
 *
 * What is kept: everything above, to full precision for constant values (64-bit floats are
 * stored exactly) and to single precision for envelope keys (as EnvSave stores them). What is
 * not kept: identity strings (loaded items get new ones; CineItemUniqueName gives the same
 * names), the values of object channels (gradients and other objects belong to their owners
 * and are left at their defaults), and anything an undo history holds.
 *
 * Loading makes a new scene, listed like one made by CinemaCreate. The load is not recorded
 * for undo: no undo step can take the scene away again, and the host ends it with
 * CinemaDestroy. The loaded scene is clean (CinemaHasChanged gives 0) and sends no events while
 * it is being filled; then the post-load callbacks of its items' packages run
 * (CinePackagePostLoadFunc). A load that fails returns null, leaves no scene behind and sets
 * VxLastFailure: VX_E_FAILED for a file that is not a scene file or is damaged (every byte is
 * checked), VX_E_REFUSED for a file of a newer major format version, VX_E_NOTFOUND in strict
 * mode for a file that needs a package this session lacks, VX_E_BADARG for reserved options,
 * VX_E_NOMEMORY.
 *
 * Packages the session lacks: by default the items of a missing type are dropped with their
 * links and action entries, a missing add-on package is dropped from its items with the
 * entries of its channels, and an entry whose channel no longer exists is dropped; each loss is
 * logged as a failure line. With CINEMA_LOAD_STRICT any of these fails the load instead.
 *
 * Everything here is valid between CinemaStartup and CinemaShutdown; call it from the main
 * thread. */
#ifndef VEXOR_SCENE_IO_H
#define VEXOR_SCENE_IO_H

#include "vexor/block.h"
#include "vexor/cinema.h"
#include "vexor/export.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

/* Options of CinemaLoadCustom and CinemaLoadAccess: 0 is the default. Other bits are reserved
 * and must be 0. */
#define CINEMA_LOAD_STRICT 0x1u /* fail rather than drop what needs a missing package */

/* Saves the scene into a file, replacing any file of that name. The file is written beside
 * its final name ("<path>.part") and moved there once complete, so a failed save leaves an
 * earlier file as it was. The scene is not changed: its file name and change counter are the
 * host's to set. Returns 1, or 0 on failure. */
VX_API int CinemaSave(Cinema *scene, const char *path);
/* Writes the scene's block at the writer's current position (a memory writer makes a scene
 * file in memory). Returns 1, or 0 on failure; the writer is then failed (vexor/block.h). */
VX_API int CinemaSaveAccess(Cinema *scene, BlkWriter *writer);

/* Loads the scene file at path as a new scene, whose file name becomes path. Null on failure
 * (see above). The scene is the caller's to end with CinemaDestroy. */
VX_API Cinema *CinemaLoadCustom(const char *path, unsigned int options);
/* The same from an open reader: reads the next scene block at the reader's current level
 * (skipping other blocks) and leaves the reader after it. The scene has no file name. */
VX_API Cinema *CinemaLoadAccess(BlkReader *reader, unsigned int options);

/* The saver and the loader "$Cinema" (registry classes "saver" and "loader", vexor/host.h)
 * make objects of the component class "cinema.file" (ServerAllocate), whose one interface
 * CINEMA_FILE_GUID saves and loads scene files as CinemaSave and CinemaLoadCustom do:
 *
 *     void *saver = NULL;
 *     const CinemaFileMethods *file = NULL;
 *     if (ServerAllocate(HostLookupServer("saver", "$Cinema"), &saver) == VX_OK &&
 *         XObjectQueryInterface(saver, CINEMA_FILE_GUID, (void **)&file) == VX_OK) {
 *         file->Save(saver, scene, "shot.vxr");
 *         file->object.Release(saver);
 *     }
 *     XObjectRelease(saver);
 */
#define CINEMA_FILE_CLASS "cinema.file"
#define CINEMA_FILE_GUID "{9AF26B2E-7707-4A5E-92C9-5FBAE0F55F3B}"
typedef struct CinemaFileMethods {
    XObjectMethods object;
    int (*Save)(void *obj, Cinema *scene, const char *path);
    Cinema *(*Load)(void *obj, const char *path, unsigned int options);
} CinemaFileMethods;

VX_EXTERN_C_END

#endif
