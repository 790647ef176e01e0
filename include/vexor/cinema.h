/* The scene module: its start and stop.
 *
 * CinemaStartup and CinemaShutdown are reference counted. The first start brings up the
 * registry of servers (vexor/host.h), the global port "cinema-db" on which the module
 * announces its changes, and the registry of packages and item types (vexor/package.h); the
 * balancing shutdown takes them down again, forgetting every type and the packages defined
 * with CinePackageDefine. Call both from the main thread: the thread whose start brings the
 * module up is the main thread until the module stops (see CinemaEvaluate). */
#ifndef VEXOR_CINEMA_H
#define VEXOR_CINEMA_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* The handles of the scene and animation families: a scene, an item of a scene, an action (a
 * layer of channel values) and an evaluator. All are records owned by the library. */
typedef struct Cinema Cinema;
typedef struct CineItem CineItem;
typedef struct CineAction CineAction;
typedef struct CineEval CineEval;

/* Starts the module, or adds a reference to it. When it cannot start (out of memory) nothing
 * is left started; VxLastFailure tells why. */
VX_API void CinemaStartup(void);
/* Drops a reference; the last one stops the module. Unbalanced calls are ignored. */
VX_API void CinemaShutdown(void);

VX_EXTERN_C_END

#endif
