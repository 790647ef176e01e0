/* The stepwise sort: an array of pointers sorted a bounded piece at a time, so that long sorts
 * can report progress or be abandoned.
 *
 * It is a bottom-up merge sort: each SortStep merges one more pair of sorted runs. It is stable
 * (items that compare equal keep their order), needs one scratch array of the same length, and
 * makes at most n log2(n) comparisons. It stays correct for a comparison that records
 * something about the items it compares (marks them, counts them) as long as its answers form
 * a consistent order; and, like every correct comparison sort, it compares each pair of items
 * that end up next to each other unless they compare equal.
 *
 * A sort is used by one thread at a time. */
#ifndef VEXOR_SORT_H
#define VEXOR_SORT_H

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Negative when a goes before b, positive when after, 0 when they are equal. */
typedef int (*SortCompareFunc)(const void *a, const void *b, void *client);

typedef struct SortState SortState;

/* Starts sorting the `count` pointers at `items` in place. The array must stay valid until
 * SortDestroy. Null when out of memory (or for a null array with a count), nothing changed. */
VX_API SortState *SortCreate(void **items, unsigned int count, SortCompareFunc compare,
                             void *client);
/* Does one more piece of the work. Returns 1 while there is more to do, 0 when the array is
 * sorted (also for a null sort). */
VX_API int SortStep(SortState *sort);
/* Frees the sort; the array holds the sorted items if SortStep returned 0, else a permutation
 * of them. Null is ignored. */
VX_API void SortDestroy(SortState *sort);

VX_EXTERN_C_END

#endif
