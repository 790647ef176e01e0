/* Block streams: nested, length-prefixed blocks of little-endian values in a file or in memory.
 *
 * A block is an identifier, the length of its payload and the payload, which holds values and
 * further blocks. A writer opens a block, writes values and blocks into it and ends it; a
 * reader finds the next block whose identifier it knows, reads values from it and ends it,
 * skipping whatever it does not know. Every block stream starts with a header carrying the
 * format version. The byte layout is in docs/formats.md, "Block stream".
 *
 * Writers: every write returns 1, or 0 on failure (out of memory, a file error, a refused
 * identifier, an end with no open block). After a failure the writer stays failed: later
 * writes return 0 and BlkWriterClose returns 0, since the stream lacks a piece.
 *
 * Readers trust nothing they read. A malformed stream (a block longer than what holds it, a
 * truncated header, nesting deeper than 64 blocks) turns the reader bad: BlkFindBlock then
 * returns 0 and reads return 0, and BlkReaderFailed tells this apart from a clean end. A
 * reader allocates nothing after it is opened, whatever lengths the stream claims.
 *
 * Threads: a writer or reader is used by one thread at a time. */
#ifndef VEXOR_BLOCK_H
#define VEXOR_BLOCK_H

#include <stddef.h>

#include "vexor/export.h"

VX_EXTERN_C_BEGIN

typedef struct BlkWriter BlkWriter;
typedef struct BlkReader BlkReader;

/* One entry of a reader's table of wanted blocks: the identifier and a name for people (the
 * name is not stored in the stream). A table ends with an entry whose id is 0. */
typedef struct BlkBlockId {
    unsigned int id;
    const char *name;
} BlkBlockId;

/* The identifier of padding blocks, which readers always skip. */
#define BLK_PAD_ID 9999u

/* ---- Writing ---- */

/* A writer to a new file (replacing any file of that name), or to a growing block of memory.
 * Null when the file cannot be created or when out of memory. End with BlkWriterClose. */
VX_API BlkWriter *BlkWriterOpenFile(const char *path);
VX_API BlkWriter *BlkWriterOpenMemory(void);
/* The bytes a memory writer holds so far, and their number in *size (size may be null).
 * The bytes stay the writer's and are valid until the next write or BlkWriterClose. Null
 * (and 0) for a file writer. */
VX_API const void *BlkWriterMemoryData(const BlkWriter *w, size_t *size);
/* Flushes, closes and frees the writer. 1 when the whole stream was written; 0 when any
 * write failed, a block was left open, or the file could not be flushed (the file is then
 * incomplete). Null is ignored (returns 0). */
VX_API int BlkWriterClose(BlkWriter *w);

/* Opens a block inside the current one (or at the top level); nesting to 64 blocks. The
 * identifier may not be 0 or BLK_PAD_ID. */
VX_API int BlkWriteBlock(BlkWriter *w, unsigned int id);
/* Writes `count` values into the current block: unsigned and signed 32-bit integers, 32-bit
 * floats. */
VX_API int BlkWriteU4(BlkWriter *w, const unsigned int *values, unsigned int count);
VX_API int BlkWriteI4(BlkWriter *w, const int *values, unsigned int count);
VX_API int BlkWriteFP(BlkWriter *w, const float *values, unsigned int count);
/* Writes a padding block of `size` zero bytes of payload. */
VX_API int BlkWritePadding(BlkWriter *w, unsigned int size);
/* Ends the innermost open block, fixing its length. 0 when no block is open. */
VX_API int BlkWriteEnd(BlkWriter *w);

/* ---- Reading ---- */

/* A reader of a file, or of `size` bytes in memory. The memory is borrowed, not copied: it
 * must stay valid and unchanged until BlkReaderClose. Null when the file cannot be opened,
 * when the bytes do not start with a block stream header of a version this library reads,
 * or when out of memory. End with BlkReaderClose. */
VX_API BlkReader *BlkReaderOpenFile(const char *path);
VX_API BlkReader *BlkReaderOpenMemory(const void *data, size_t size);
/* Closes and frees the reader. Null is ignored. */
VX_API void BlkReaderClose(BlkReader *r);
/* 1 when the reader met a malformed stream (and now reads nothing), else 0. */
VX_API int BlkReaderFailed(const BlkReader *r);

/* Finds the next block, at the current level, whose identifier is in the table, skipping
 * other blocks and padding; enters it and returns its identifier. Returns 0 when the current
 * block (or the stream) has no more such blocks, when the table is null, and when the stream
 * is malformed. The blocks skipped are passed for good. */
VX_API unsigned int BlkFindBlock(BlkReader *r, const BlkBlockId *table);
/* Reads up to `count` values from the current block; returns how many were read. Fewer when
 * the block holds fewer (a read never goes past the block), 0 outside any block. */
VX_API unsigned int BlkReadU4(BlkReader *r, unsigned int *values, unsigned int count);
VX_API unsigned int BlkReadI4(BlkReader *r, int *values, unsigned int count);
VX_API unsigned int BlkReadFP(BlkReader *r, float *values, unsigned int count);
/* Leaves the current block, skipping what is unread, and returns 1; 0 when no block is open. */
VX_API int BlkReadEnd(BlkReader *r);

VX_EXTERN_C_END

#endif
