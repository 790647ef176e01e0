/* Memory: zero-filled blocks by size, and zones of fixed-size blocks.
 *
 * Blocks from StdAlloc are released with FreeHeap. A block zone hands out blocks of one size
 * from larger chunks and reuses freed ones; everything it holds is returned when it is
 * destroyed. */
#ifndef VEXOR_MEMORY_H
#define VEXOR_MEMORY_H

#include <stddef.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* A zero-filled block of `size` bytes, aligned for any type; release it with FreeHeap giving
 * the same size. Returns null when out of memory. Any thread. */
VX_API void *StdAlloc(size_t size);

/* Releases a block from StdAlloc; `size` must be the size it was allocated with. Null is
 * ignored. Any thread. */
VX_API void FreeHeap(void *block, size_t size);

typedef struct BlockZone BlockZone;

/* Creates a zone of blocks of `block_size` bytes (rounded up to the alignment of any type).
 * A zone from BZCreate is used by one thread at a time; one from BZCreateMT by any number at
 * once. Release with BZDestroy. Returns null when block_size is 0 or too large, or when out
 * of memory. */
VX_API BlockZone *BZCreate(size_t block_size);
VX_API BlockZone *BZCreateMT(size_t block_size);

/* A zero-filled block of the zone's size, aligned for any type; null when out of memory. */
VX_API void *BZAlloc(BlockZone *zone);

/* Gives a block back to the zone it came from. Null is ignored. */
VX_API void BZFree(BlockZone *zone, void *block);

/* Frees the zone with all its blocks, including those still handed out. Null is ignored. */
VX_API void BZDestroy(BlockZone *zone);

/* The number of blocks handed out and not yet given back; 0 for null. */
VX_API size_t BZLive(const BlockZone *zone);

VX_EXTERN_C_END

#endif
