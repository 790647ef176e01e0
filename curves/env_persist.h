// Envelopes in block streams: the "ends" and "key" blocks that hold an envelope's behaviours
// and keys inside a block owned by the caller (a channel, a gradient). Byte layout in
// docs/formats.md, "Envelope blocks".
#pragma once

#include "curves/envelope.h"
#include "foundation/block_stream.h"

namespace vx::env {

inline constexpr std::uint32_t kBlockEnds = 1;
inline constexpr std::uint32_t kBlockKey = 2;

// Writes the "ends" block (only when a behaviour is not 1; it holds the pre behaviour alone)
// and one "key" block per key in list order. Times, values, slopes and weights are narrowed
// to 32-bit floats. Raises the writer's failures.
void save(const Envelope &env, BlkWriter &writer);

// Replaces the envelope's keys with those of the stream: removes every key (undoable, no
// note), sets both behaviours to 1, then reads blocks until there are none. Keys are appended
// in stream order, unsorted and unannounced. An "ends" block of one value sets both
// behaviours to it; of two, pre and post. Returns false when the stream is malformed (a key
// or "ends" block too short, or the reader turned bad): the keys read before stay, the key
// being read is freed, and nothing more is read. Raises std::bad_alloc when out of memory,
// with the same state left behind; a failure to remove the old keys leaves the envelope
// untouched.
bool load(Envelope &env, BlkReader &reader);

}  // namespace vx::env
