/* Vexor core: the whole C interface. Each family has a header of its own; this one includes
 * them all. */
#ifndef VEXOR_VEXOR_H
#define VEXOR_VEXOR_H

#include "vexor/action.h"
#include "vexor/actionclip.h"
#include "vexor/block.h"
#include "vexor/cinema.h"
#include "vexor/env.h"
#include "vexor/env_eval.h"
#include "vexor/env_io.h"
#include "vexor/eval.h"
#include "vexor/export.h"
#include "vexor/failure.h"
#include "vexor/group.h"
#include "vexor/host.h"
#include "vexor/log.h"
#include "vexor/mark.h"
#include "vexor/maths.h"
#include "vexor/memory.h"
#include "vexor/mesh.h"
#include "vexor/package.h"
#include "vexor/port.h"
#include "vexor/ptag.h"
#include "vexor/scene.h"
#include "vexor/scene_io.h"
#include "vexor/time.h"
#include "vexor/undo.h"
#include "vexor/value.h"
#include "vexor/version.h"
#include "vexor/vmap.h"

#endif
