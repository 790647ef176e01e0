/* Shading-vector packets for plug-in writers: the operations table a packet may supply, the
 * operations of texture effects, and the field layouts of the built-in packets.
 *
 * A vector is one block of memory cut into packets (vexor/svec.h). A packet is a fixed-size
 * record; its optional operations table tells the vectors how to reset, copy, clear, blend and
 * invert it. Any slot may be null:
 *   - no Reset: the packet is filled with zero bytes;
 *   - no Copy: the packet's bytes are copied (a packet of declared size 0 holds one component
 *     object pointer, which is copied with a new reference instead);
 *   - no Clear: nothing is released (an object packet's reference is released);
 *   - no Blend or Invert: the packet is left unchanged by GVBlend or GVInvert.
 * Operations run on the thread that uses the vector and must not fail.
 *
 * Layouts: every built-in packet is made of 32-bit fields only (floats, then unsigned words),
 * so a packet is 4-byte aligned at any offset a type gives it and may be read through a
 * pointer to its layout. Positions and vectors are in world space unless a field says
 * otherwise; colours are linear RGB. Fields named `reserved` are zero and kept for later use. */
#ifndef VEXOR_SYS_VPACKET_H
#define VEXOR_SYS_VPACKET_H

#include "vexor/export.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

/* The operations of a packet. The leading object methods let one table serve as an
 * interface of a component object; the vectors never call them, and they may be null. */
typedef struct VPacketOps {
    XObjectMethods object;
    /* Puts the packet in its initial state (GVReset). */
    void (*Reset)(void *packet);
    /* Copies src into dst (GVCopy, and a packet copied up to a new level). */
    void (*Copy)(void *dst, const void *src);
    /* Releases what the packet holds (GVClear, GVDestroy, and a level being left). */
    void (*Clear)(void *packet);
    /* dst := dst + (src - dst) * weight, as the packet understands it (GVBlend). */
    void (*Blend)(void *dst, const void *src, float weight);
    /* Replaces the packet by its inverse, as the packet understands it (GVInvert). */
    void (*Invert)(void *packet);
} VPacketOps;

/* The operations of a texture effect registered with TextureEffectDefine: the object methods
 * (unused by the library; may be null), then the effect's own. `data` is what was given at
 * registration. */
typedef struct TextureEffectOps {
    XObjectMethods object;
    /* Called for each effect object made by TextureEffectAllocate; non-zero refuses it. May
     * be null. */
    int (*Init)(void *data);
} TextureEffectOps;

/* ---- Layouts of the built-in packets (category "sample") ---------------------------------- */

/* "sample.mask", "sample.stencil", "sample.density", "shade.opacity", "shade.diffuse",
 * "shade.specular", "shade.mirror", "shade.transparency", "shade.subsurface",
 * "shade.luminosity", "surface.smoothing": one colour or vector of three floats. Blending is
 * linear; inverting takes 1 - x (for "surface.smoothing", which is a vector, nothing). */
typedef struct VPColor {
    float rgb[3];
} VPColor;

/* "sample.groupMask": the bits of the groups a sample belongs to. */
typedef struct VPGroupMask {
    unsigned int bits;
} VPGroupMask;

/* "sample.dissolve": how far the surface is dissolved, 0 (solid) to 1 (gone). */
typedef struct VPDissolve {
    float amount;
} VPDissolve;

/* "sample.position": where the sample lies. */
typedef struct VPSamplePosition {
    float wPos[3];  /* world position */
    float oPos[3];  /* object position */
    float gNorm[3]; /* geometric normal, world */
    float oNorm[3]; /* geometric normal, object space */
    float uv[2];    /* surface parameters */
    float dPdu[3];  /* world derivatives along the surface parameters */
    float dPdv[3];
    float wVel[3];  /* world velocity, per second */
    float bias[3];  /* offset that leaves the surface for secondary rays */
    float spotSize; /* radius of the sample's footprint */
    float time;     /* seconds */
    float depth;    /* distance from the camera */
    float bary[3];  /* barycentric position in the facet */
    unsigned int polygon;
    unsigned int item;
    unsigned int flags;
    unsigned int thread;
} VPSamplePosition;

/* "sample.ray": the ray that reached the sample. */
typedef struct VPSampleRay {
    float origin[3];
    float dir[3]; /* unit length */
    float length; /* to the sample */
    float minLength;
    float maxLength;
    float ior;     /* refractive index of the medium the ray travels in */
    float dOdx[3]; /* ray differentials across the image */
    float dOdy[3];
    float dDdx[3];
    float dDdy[3];
    float weight[3]; /* what the ray's result is worth to the pixel */
    unsigned int bounce;
    unsigned int kind; /* bits: 1 camera, 2 shadow, 4 reflection, 8 refraction, 16 indirect */
    unsigned int flags;
} VPSampleRay;

/* "sample.xfrm": the transforms of the item being shaded, 3 x 4 row-major matrices. */
typedef struct VPSampleXfrm {
    float objectToWorld[12];
    float worldToObject[12];
    float worldToCamera[12];
    float normalToWorld[9];
    unsigned int item;
    unsigned int flags;
    unsigned int reserved;
} VPSampleXfrm;

/* "sample.parms": the surface's material parameters before texturing. */
typedef struct VPSampleParms {
    float color[3];
    float diffuse, specular, reflection, transparency, translucency, luminosity, subsurface;
    float specColor[3];
    float reflColor[3];
    float transColor[3];
    float lumColor[3];
    float subsColor[3];
    float translColor[3];
    float roughness, ior, anisotropy, bump, dispersion, fresnel, subsDistance, coat, coatRoughness;
    float anisoDir[3];
    float tangent[3];
    float reserved[23];
    unsigned int material;
    unsigned int shader;
    unsigned int layers;
    unsigned int flags;
} VPSampleParms;

/* "sample.driver": a value that drives a texture (a particle's age, a vertex map's weight). */
typedef struct VPSampleDriver {
    float value;
    float weight;
    unsigned int item;
    unsigned int channel;
} VPSampleDriver;

/* "sample.volume": a sample inside a volume. */
typedef struct VPSampleVolume {
    float density;
    float scattering[3];
    float absorption[3];
    float emission[3];
    float stepSize;
    float t0, t1; /* the ray span inside the volume */
} VPSampleVolume;

/* "sample.facet": the triangle the sample lies on. */
typedef struct VPSampleFacet {
    float vertex[3][3];
    float normal[3][3]; /* smoothed vertex normals */
    float uv[3][2];
    float facetNormal[3];
    float area;
    float reserved[21];
    unsigned int vertexId[3];
    unsigned int polygon;
    unsigned int item;
    unsigned int vertexCount; /* of the polygon the facet was cut from */
    unsigned int flags;
} VPSampleFacet;

/* "texture.input": where a texture is evaluated, in the texture's own space. */
typedef struct VPTextureInput {
    float tPos[3]; /* texture-space position */
    float oPos[3]; /* object position */
    float uvw[3];
    float dPdx[3]; /* footprint across the image */
    float dPdy[3];
    float dUVdx[2];
    float dUVdy[2];
    float normal[3]; /* texture-space normal */
    float tangentU[3];
    float tangentV[3];
    float spotSize;
    float time;
    float xfrm[12]; /* world to texture, 3 x 4 row-major */
    float reserved[12];
    unsigned int projection;
    unsigned int axis;
    unsigned int uvMap;
    unsigned int flags;
} VPTextureInput;

/* "texture.output": what a texture computed. */
typedef struct VPTextureOutput {
    float value;
    float alpha;
    float color[3];
    float bump[3]; /* gradient for bump mapping */
    float displace;
    float reserved[18];
    unsigned int flags;
} VPTextureOutput;

/* "texture.value": a layer's value before it is blended (see TextureLayerBlendValue). */
typedef struct VPTextureValue {
    float value;
    float opacity;
    float color[3];
    float reserved[4];
    unsigned int flags;
} VPTextureValue;

/* "texture.locator": the texture's placement. */
typedef struct VPTextureLocator {
    float xfrm[12];    /* world to texture, 3 x 4 row-major */
    float inverse[12]; /* texture to world */
    float center[3];
    float size[3];
    float rotation[3]; /* radians, heading pitch bank */
    float falloff[3];
    float reserved[26];
    unsigned int item;
    unsigned int projection;
    unsigned int axis;
    unsigned int worldCoords;
} VPTextureLocator;

/* "surface.normal": the normals at the sample. Inverting turns the shading normal round. */
typedef struct VPSurfaceNormal {
    float shading[3]; /* after bump and smoothing */
    float geometric[3];
    float smoothed[3];
    float object[3]; /* shading normal in object space */
    float tangentU[3];
    float tangentV[3];
    float bumpAmount;
    unsigned int flags;
    unsigned int smoothing;
} VPSurfaceNormal;

/* "sample.bump": the bump gradient being gathered. Inverting turns the gradient round. */
typedef struct VPSampleBump {
    float gradient[3];
    float amplitude;
    float dPdu[3];
    float dPdv[3];
    float du, dv;
    float height;
    float normalIn[3];
    unsigned int layer;
    unsigned int flags;
    unsigned int reserved[2];
} VPSampleBump;

/* "shade.components": the shading result split by kind of light. */
typedef struct VPShadeComponents {
    float diffuse[3];
    float specular[3];
    float reflection[3];
    float transparency[3];
    float subsurface[3];
    float luminosity[3];
    float translucency[3];
    float coat[3];
    float shadow[3];
    float indirect[3];
    float caustics[3];
    float volume[3];
    float alpha;
    float depth;
    float motion[2];
    float reserved[4];
    unsigned int flags;
} VPShadeComponents;

/* "shade.output": the sample's final values for the render outputs. */
typedef struct VPShadeOutput {
    float color[3];
    float alpha;
    float normal[3];
    float depth;
    float motion[2];
    float uv[2];
    float position[3];
    float emission[3];
    float coverage;
    float reserved[8];
    unsigned int item;
    unsigned int material;
    unsigned int polygon;
    unsigned int flags;
} VPShadeOutput;

/* "displace": a displacement of the surface. Inverting turns the offset round. */
typedef struct VPDisplace {
    float offset[3];
    float amount;
    float normal[3];
    float height;
    float maxDistance;
    unsigned int layer;
    unsigned int flags;
} VPDisplace;

/* "surfFlags": how the surface takes part in rendering. */
typedef struct VPSurfFlags {
    float smoothAngle;       /* radians */
    unsigned int flags;      /* bits: 1 double sided, 2 casts shadows, 4 receives shadows */
    unsigned int visibility; /* bits: 1 camera, 2 reflection, 4 refraction, 8 indirect */
    unsigned int rayMask;
    unsigned int material;
    unsigned int part;
    unsigned int reserved[16];
} VPSurfFlags;

/* "surfFog": fog in front of the surface. */
typedef struct VPSurfFog {
    float color[3];
    float density;
    float start, end;
    float height;
    unsigned int kind;
} VPSurfFog;

/* "fur": a sample on a fur strand. */
typedef struct VPFur {
    float root[3];
    float tip[3];
    float tangent[3];
    float rootUV[2];
    float along; /* 0 at the root, 1 at the tip */
    float width;
    float length;
    float density;
    float rootColor[3];
    float tipColor[3];
    float reserved[46];
    unsigned int strand;
    unsigned int segment;
    unsigned int flags;
} VPFur;

/* "particleSample": the particle a sample belongs to. */
typedef struct VPParticleSample {
    float pos[3];
    float vel[3];
    float rot[4]; /* quaternion x y z w */
    float size;
    float age;
    float lifetime;
    float mass;
    float color[3];
    float opacity;
    float reserved[6];
    unsigned int id;
    unsigned int item;
    unsigned int flags;
} VPParticleSample;

/* "shaderType": which shader shades the sample. */
typedef struct VPShaderType {
    unsigned int kind;
    unsigned int flags;
    unsigned int shader;
} VPShaderType;

/* "groupLayer": the group layer being evaluated. */
typedef struct VPGroupLayer {
    float opacity;
    unsigned int layer;
    unsigned int blendMode;
    unsigned int effect;
    unsigned int flags;
} VPGroupLayer;

/* "sample.clip": clipping of the sample by clip planes. */
typedef struct VPSampleClip {
    float distance; /* to the nearest clip plane, negative when clipped */
    unsigned int mask;
    unsigned int item;
    unsigned int flags;
} VPSampleClip;

VX_EXTERN_C_END

#endif
