/* Envelope persistence: an envelope's behaviours and keys as blocks of a block stream.
 *
 * The caller owns the enclosing block (the channel or gradient the envelope belongs to):
 * EnvSave writes into the writer's current block and EnvLoad reads the rest of the reader's
 * current block (or of the stream at the top level). The blocks are "ends" (id 1) and "key"
 * (id 2); readers skip padding (BLK_PAD_ID) and unknown blocks. Layout in docs/formats.md,
 * "Envelope blocks".
 *
 * Precision: times, values, slopes and weights are stored as 32-bit floats, so a saved float
 * envelope keeps them to single precision only. Integer values are stored as 32-bit signed
 * integers, exactly.
 *
 * Behaviours: only the pre behaviour is stored, and only when a behaviour is not 1
 * (ENV_BEHAVIOR_CONSTANT). Loading gives the post behaviour the stored pre behaviour, so an
 * envelope with the same behaviour at both ends (as every new envelope has) keeps it; an
 * envelope whose post behaviour differed from its pre behaviour loads with both equal to the
 * pre behaviour. An envelope with both behaviours 1 and no keys writes nothing at all. */
#ifndef VEXOR_ENV_IO_H
#define VEXOR_ENV_IO_H

#include "vexor/block.h"
#include "vexor/env.h"
#include "vexor/export.h"

VX_EXTERN_C_BEGIN

/* Writes the envelope's blocks at the writer's current position. 1, or 0 on failure (the
 * writer is then failed, see block.h). The envelope is not changed. */
VX_API int EnvSave(Envelope *env, BlkWriter *w);

/* Replaces the envelope's keys with the stream's. First removes every key as one undoable
 * edit (without the ENV_NOTE_ENVELOPE note that EnvClearKeys sends) and sets both behaviours
 * to 1 directly; then reads "ends" and "key" blocks until the current block or the stream
 * has no more. Keys are appended in stream order, not sorted and not announced: a stream
 * whose keys are out of time order gives an envelope out of order. A key stored without
 * breaks has a zero-filled side 1.
 *
 * Returns 1 when the blocks were read to their end. Returns 0 on a malformed stream or when
 * out of memory: the keys read until then stay in the envelope, the key being read is
 * discarded, and the reader is left after the short block, so the caller can still end its
 * own block (BlkReaderFailed tells whether the stream itself is broken). If even the removal
 * of the old keys fails, the envelope is untouched. */
VX_API int EnvLoad(Envelope *env, BlkReader *r);

VX_EXTERN_C_END

#endif
