/* Texture layer types for plug-in writers: what a layer type supplies to the shading of its
 * items (TextureLayerDefine). */
#ifndef VEXOR_SYS_TLAYER_H
#define VEXOR_SYS_TLAYER_H

#include "vexor/blend.h"
#include "vexor/eval.h"
#include "vexor/export.h"
#include "vexor/scene.h"
#include "vexor/svec.h"

VX_EXTERN_C_BEGIN

/* The operations of a layer type; either may be null. `client` is the value given to
 * TextureLayerDefine. */
typedef struct TextureLayerOps {
    /* The layer's flags, as TLayerFlags reports them. */
    unsigned int (*Flags)(void *client, CineItem *layer);
    /* Computes the layer's value at a shading sample. `eval` reads the layer's channels at
     * the evaluation's time (null: the scene's "setup" action); `sample` is the shading vector
     * (may be null), whose "texture.input" packet, when present, places the sample in texture
     * space. `out` arrives as value 0, opacity 1, colour black. Returns 1 when the layer gives
     * a value here, 0 when it leaves the sample alone. Must not fail. */
    int (*Evaluate)(void *client, CineItem *layer, CineEval *eval, GVector *sample,
                    TextureLayerValue *out);
} TextureLayerOps;

VX_EXTERN_C_END

#endif
