/* The sampler a host gives the irradiance cache: it computes irradiance where the cache has
 * none to interpolate (vexor/irr_cache.h, IrrCacheEstimateIrradiance). */
#ifndef VEXOR_SYS_IRR_CACHE_H
#define VEXOR_SYS_IRR_CACHE_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* What a sampler computes at a point. */
typedef struct IrrCacheSample {
    float irradiance[3];  /* irradiance arriving at the point over the normal's hemisphere */
    float irradiance2[3]; /* the second irradiance (of the second list's kind of light) */
    float gradient[3];    /* how the irradiance changes across the surface, relative to its size,
                             per unit of length; 0 when unknown */
    float gradient2[3];   /* the same for the second irradiance */
    float radius;         /* how far the value stays valid: for example the harmonic mean
                             distance of the surfaces the sampling rays hit; above 0 */
} IrrCacheSample;

/* Computes a sample at `position` with unit `normal`, where a pixel covers `footprint` world
 * units. Returns 1 with *sample filled, or 0 when it cannot (nothing is stored then). It runs
 * on the thread that asked for the estimate and must return normally. */
typedef int (*IrrCacheSampler)(void *client, const float position[3], const float normal[3],
                               float footprint, IrrCacheSample *sample);

VX_EXTERN_C_END

#endif
