/* The irradiance cache: irradiance computed at a few points, stored with the position, normal
 * and radius over which it stays valid, and interpolated at the shading points near them.
 *
 * Values are kept in two lists (kind 0 and kind 1, for example direct and caustic
 * irradiance), in an octree of blocks of four values each. A query gathers the values of one
 * list whose acceptance radius holds its point, whose normal lies within the pass's cone of
 * its normal and whose plane passes near its point, and weights each by how far the point is
 * from it, in distance and in angle (IrrCacheGather). IrrCacheEstimateIrradiance computes and
 * stores a new value through a host's sampler when the gather finds too few.
 *
 * The octree: eight top nodes, the octants of the cube [-E, E]^3, where E is the smallest power
 * of two from 1 up beyond every stored position and at least twice every radius (a value
 * beyond it rebuilds the octree with E doubled as often as needed; positions beyond +-2^40 are
 * refused); every child halves its
 * parent. A value goes to the smallest cell that holds its position and whose edge is at least
 * twice its radius (at most 60 levels down), so that every query point within its reach lies
 * in that cell's box grown by the query's margin. Within a node, a value fills the last block
 * of its list when that has a free slot, else a new block carved from the cache's pages.
 *
 * Passes: the pass settings and the lock are one set for the process, set between passes
 * (IrrCacheSetPass). Values stored during a pass carry its number (modulo 256); queries of
 * the first list do not use the values of the current pass.
 *
 * Reading: once a cache has been gathered from about an eighth as many times as it holds
 * values with no change in between, the gather that finds it due packs a copy of its octree in
 * walk order (as much memory again as its blocks, not counted by IrrCacheMemoryUsage), which
 * later gathers read; every change to its values drops the copy.
 *
 * Threads: a cache may be read (gathered from, saved) by several threads at once while no
 * thread stores into it; the lock makes IrrCacheEstimateIrradiance read-only. Readers that find
 * the packing due wait for one of them to make it. */
#ifndef VEXOR_IRR_CACHE_H
#define VEXOR_IRR_CACHE_H

#include <stddef.h>

#include "vexor/export.h"
#include "vexor/sys/irr_cache.h"

VX_EXTERN_C_BEGIN

typedef struct IrrCache IrrCache;

/* Flags of IrrCacheQuery.flags. */
#define IRR_QUERY_SECOND_LIST 0x1u /* gather the second list (kind 1), else the first */
#define IRR_QUERY_GRADIENTS 0x2u   /* weight by the values' gradients too */

/* A query: set the inputs; IrrCacheGather and IrrCacheEstimateIrradiance set the outputs. */
typedef struct IrrCacheQuery {
    float position[3];
    float normal[3];     /* unit length */
    float footprint;     /* the query's size: the world length of a pixel there, above 0 */
    unsigned int flags;  /* IRR_QUERY_... */
    unsigned int wanted; /* how many values make an estimate (a coincident one counts 16) */
    /* Outputs: the sums of weight x irradiance and of the weights, for the irradiance and
     * the second irradiance, and the count of values that contributed. */
    float irradiance[3];
    float irradiance2[3];
    float weight;
    float weight2;
    unsigned int count;
} IrrCacheQuery;

/* A new empty cache (no nodes, no blocks), or null when out of memory. */
VX_API IrrCache *IrrCacheCreate(void);
/* Frees every page and node. Null is ignored. */
VX_API void IrrCacheDestroy(IrrCache *cache);

/* Inserts one value; kind 0 goes to the first list, 1 to the second. Stored with the current
 * pass. Returns 1, or 0 (nothing stored) for a null cache or vector, a kind other than 0 or 1,
 * a component that is not finite, a position beyond +-2^40, a radius not above 0, or no
 * memory. */
VX_API int IrrCacheStoreValue(IrrCache *cache, const float position[3], const float normal[3],
                              const float irradiance[3], const float irradiance2[3],
                              const float gradient[3], const float gradient2[3], float radius,
                              int kind);

/* Values, blocks ("mults") and octree nodes of the cache; 0 for null. */
VX_API unsigned int IrrCacheNumValues(const IrrCache *cache);
VX_API unsigned int IrrCacheNumMults(const IrrCache *cache);
VX_API unsigned int IrrCacheNumNodes(const IrrCache *cache);
/* 320 x blocks + 120 x nodes, in bytes; 0 for null. */
VX_API size_t IrrCacheMemoryUsage(const IrrCache *cache);

/* The pass settings of the process. `pass` 0 accepts normals within 20 degrees of the query's
 * (cosine 0.9396926207859083), later passes within 10 degrees (0.984807753012208); the error
 * factor is 1 / sqrt(1 - cosine); the minimum and maximum search distances are minDist x scale
 * and maxDist x scale. The cache argument is not used (the settings are process-wide) and may
 * be null. */
VX_API void IrrCacheSetPass(IrrCache *cache, int pass, float minDist, float maxDist, float scale);
VX_API int IrrCachePass(void);
/* Makes every stored value count as stored in pass 0. */
VX_API void IrrCacheResetPasses(IrrCache *cache);
/* The lock: while set, IrrCacheEstimateIrradiance never stores. */
VX_API int IrrCacheLock(void);
VX_API void IrrCacheSetLock(int locked);

/* Gathers the values around the query's point into its outputs (which it sets from zero) and
 * returns the count. A value of the list contributes when, with d its offset to the query
 * point and s the footprint:
 *   |d|^2 < a^2, a = min(max(R x 0.5 x scale, minimum distance x s), maximum distance x s);
 *   the list is the first and the value was not stored in the current pass;
 *   the cosine between the normals is above the pass's threshold;
 *   |d . value normal| <= min(s, 0.75 R);
 * its weight is (1 - e)(1 - |g|) with e = max(|d| / a, sqrt(1 - cosine) x factor) and g the
 * value's gradient . d (0 without IRR_QUERY_GRADIENTS; scaled by (R/2)/|d| beyond R/2); the
 * second irradiance is weighted the same way with the second gradient. Values whose weight is
 * not above 0 do not contribute. Each contributing value counts 1, or 16 when it lies within
 * 0.0001 of the point. 0 for a null cache or query. */
VX_API unsigned int IrrCacheGather(const IrrCache *cache, IrrCacheQuery *query);

/* Estimates the irradiance at the query's point into irradiance and irradiance2 (either may
 * be null): the weighted mean of the gathered values when they count at least `wanted` (at
 * least 1) and weigh more than 0. Otherwise, unless the lock is set, asks the sampler for a
 * new value at the point, stores it in the query's list with its radius limited to the
 * maximum search distance (times the footprint), and answers with it. Returns 1 with an
 * estimate; 0 when there is none (the lock is set, the sampler gave nothing or failed to
 * store), leaving the outputs alone. The query's outputs are those of the gather. */
VX_API int IrrCacheEstimateIrradiance(IrrCache *cache, IrrCacheQuery *query,
                                      IrrCacheSampler sampler, void *client, float irradiance[3],
                                      float irradiance2[3]);

/* One stored value, as IrrCacheForEachValue shows it. */
typedef struct IrrCacheValue {
    float position[3], normal[3], irradiance[3], irradiance2[3], gradient[3], gradient2[3];
    float radius;
    int kind;          /* 0 first list, 1 second list */
    unsigned int pass; /* the pass it was stored in, modulo 256 */
} IrrCacheValue;

/* Calls `visit` for every value, in the order of the cache file (top nodes 0 to 7, depth first,
 * children in index order; in each node the first list, then the second). Returns the number
 * of values visited; 0 for a null cache or visitor. The cache must not change meanwhile. */
VX_API unsigned int IrrCacheForEachValue(const IrrCache *cache,
                                         void (*visit)(void *client, const IrrCacheValue *value),
                                         void *client);

/* The cache file: see docs/formats.md. Save writes version 1 to a temporary file beside
 * `path` and renames it over `path`; 1, or 0 (and no file changed) on failure. Load reads a
 * file of version 0 or 1 and stores its values as pass 0, keeping the values already in the
 * cache; 1, or 0 with the cache unchanged for a file that cannot be read or is damaged in any
 * way (wrong magic or version, a count the bytes do not hold, bytes left over, a value that
 * is not finite, a radius not above 0, a kind other than 0 or 1). LoadMemory reads the same
 * bytes from memory. */
VX_API int IrrCacheSave(const IrrCache *cache, const char *path);
VX_API int IrrCacheLoad(IrrCache *cache, const char *path);
VX_API int IrrCacheLoadMemory(IrrCache *cache, const void *data, size_t size);

/* ---- A sampler for tests and demonstrations ---- */

/* A sky over an infinite ground (z = 0, normal +z): the sky gives skyColor from above,
 * fading to nothing at the horizon; the sun adds sunColor x cos(angle to sunDirection); the
 * ground reflects groundAlbedo of what reaches it. Radii grow with the distance to the ground
 * plane, between minRadius and maxRadius. */
typedef struct IrrCacheSkyScene {
    float skyColor[3];
    float sunColor[3];
    float sunDirection[3]; /* unit length, towards the sun */
    float groundAlbedo;
    float minRadius;
    float maxRadius;
} IrrCacheSkyScene;

/* An IrrCacheSampler over an IrrCacheSkyScene given as client. */
VX_API int IrrCacheSkySampler(void *client, const float position[3], const float normal[3],
                              float footprint, IrrCacheSample *sample);

/* ---- Radiance maps ---- */

/* A radiance map: RGB radiance by direction, over the sphere of directions laid out as an
 * octahedron unfolded onto a square of size x size cells (every cell covers about the same
 * solid angle; the layout has no poles and no seams inside the square). Values add up; each
 * cell also counts the radiance added to it, and reads give the mean. */
typedef struct RadMap RadMap;

/* Makes an empty map of size x size cells (1 to 1024) kept by the cache and freed with it, or,
 * for a null cache, one of the caller's, freed by RadMapFree. Null on failure. */
VX_API RadMap *RadMapAddMap(IrrCache *cache, unsigned int size);
/* Empties every cell of the map. Null is ignored. */
VX_API void RadMapClear(RadMap *map);
/* Frees a map made without a cache. Null, and maps kept by a cache, are ignored. */
VX_API void RadMapFree(RadMap *map);
/* The cell of a direction (need not be unit length, not zero): 1, or 0 for a zero or
 * non-finite direction. */
VX_API int RadMapDirectionToIndices(const RadMap *map, const float direction[3], unsigned int *u,
                                    unsigned int *v);
/* The unit direction through the middle of a cell; 0 when the cell is out of range. */
VX_API int RadMapIndicesToDirection(const RadMap *map, unsigned int u, unsigned int v,
                                    float direction[3]);
/* Adds radiance arriving from a direction; 1, or 0 for a bad direction. */
VX_API int RadMapAddRadiance(RadMap *map, const float direction[3], const float radiance[3]);
/* The mean radiance added from the direction's cell (0 when none was); 1, or 0 for a bad
 * direction. */
VX_API int RadMapGetRadiance(const RadMap *map, const float direction[3], float radiance[3]);

VX_EXTERN_C_END

#endif
