/* Interfaces of package server objects, for modules and hosts that supply packages as
 * servers of class "package" (vexor/host.h).
 *
 * A package server's factory returns a component object (vexor/sys/component.h). If the object
 * has the package interface, the scene calls its SetupChannels once, when the package is first
 * needed, with an add-channel object through which the package describes its channels with
 * the same tag lists as CinePackageAddChannel. An object without the package interface
 * contributes no channels. */
#ifndef VEXOR_SYS_PACKAGE_H
#define VEXOR_SYS_PACKAGE_H

#include <stdarg.h>

#include "vexor/package.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

#define CINE_PACKAGE_GUID "{6383211E-2624-492E-8C4B-D06BB43886A7}"
#define CINE_SCENE_GUID "{4340A8FC-F984-4E04-A4BB-83931A6335AF}"
#define CINE_PACKAGE_INSTANCE_GUID "{09D603F7-CCF6-4A5C-B41C-021AC6C17A94}"
#define CINE_ADD_CHANNEL_GUID "{37FC7F7B-4492-45D7-BD43-F6EBB9C7A1F2}"

typedef struct CinePackageMethods {
    XObjectMethods object;
    /* Describes the package's channels through addChan, an object with the add-channel
     * interface valid during the call. Returns VX_OK or a failure code. */
    unsigned int (*SetupChannels)(void *obj, void *addChan);
} CinePackageMethods;

typedef struct CineAddChannelMethods {
    XObjectMethods object;
    /* Appends channels from a tag list ended by CINE_CH_NAME with a null name, as
     * CinePackageAddChannel does; all or nothing. Returns VX_OK or a failure code. */
    unsigned int (*AddChannel)(void *obj, ...);
    unsigned int (*AddChannelV)(void *obj, va_list tags);
} CineAddChannelMethods;

VX_EXTERN_C_END

#endif
