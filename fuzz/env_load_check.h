// What must hold for any bytes loaded as an envelope. Shared by the fuzz target and the test
// that replays the fuzz corpus, so that every input the fuzzer keeps is checked the same way
// by the ordinary test run.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <vexor/block.h>
#include <vexor/env.h>
#include <vexor/env_io.h>

namespace vx::fuzz {

// The fewest stream bytes one loaded key can come from: a block header and six 4-byte fields.
inline constexpr std::size_t kMinKeyBytes = 8 + 6 * 4;

// Walks every block with a small identifier to the deepest level, reading a few values from
// each: the reader must stay inside the bytes whatever they claim.
inline const char *walk_blocks(BlkReader *reader, unsigned depth) {
    static const BlkBlockId kAny[] = {{1, "one"}, {2, "two"}, {3, "three"}, {0, nullptr}};
    if (depth > 64) return "the reader nested deeper than it allows";
    while (BlkFindBlock(reader, kAny) != 0) {
        unsigned int values[3];
        if (BlkReadU4(reader, values, 3) > 3) return "a read returned more than was asked";
        if (const char *broken = walk_blocks(reader, depth + 1)) return broken;
        if (BlkReadEnd(reader) != 1) return "a found block could not be ended";
    }
    return nullptr;
}

// The keys of an envelope, walked both ways; empty with `linked` false when the links
// disagree.
inline std::vector<const EnvKey *> keys_of(Envelope *env, bool &linked) {
    std::vector<const EnvKey *> keys;
    EnvKeyList *list = EnvGetKeyList(env);
    for (const EnvKey *key = list->head; key->succ != nullptr; key = key->succ) {
        keys.push_back(key);
    }
    std::size_t back = keys.size();
    linked = true;
    for (const EnvKey *key = list->tailPred; key->pred != nullptr; key = key->pred) {
        if (back == 0 || keys[--back] != key) {
            linked = false;
            break;
        }
    }
    linked = linked && back == 0;
    return keys;
}

// Equal bit for bit, or both not a number (a narrowing may change a NaN's payload).
inline bool same_number(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

inline bool same_side(const EnvKeySide &a, const EnvKeySide &b, bool integer) {
    const bool value = integer ? a.value.i == b.value.i : same_number(a.value.f, b.value.f);
    return a.flags == b.flags && value && same_number(a.slope, b.slope) &&
           same_number(a.weight, b.weight);
}

// Saves a loaded envelope and loads it again: every key must come back as it was loaded, and
// the pre behaviour must come back as both behaviours.
inline const char *check_round_trip(Envelope *env, const std::vector<const EnvKey *> &keys,
                                    bool integer) {
    BlkWriter *writer = BlkWriterOpenMemory();
    if (writer == nullptr) return nullptr;  // out of memory: nothing to check
    const int saved = EnvSave(env, writer);
    std::size_t size = 0;
    const auto *bytes = static_cast<const unsigned char *>(BlkWriterMemoryData(writer, &size));
    const std::vector<unsigned char> stream(bytes, bytes + size);
    if (BlkWriterClose(writer) != 1 || saved != 1) return "a loaded envelope did not save";

    Envelope *again = integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
    if (again == nullptr) return nullptr;
    const char *broken = nullptr;
    BlkReader *reader = BlkReaderOpenMemory(stream.data(), stream.size());
    if (reader == nullptr || EnvLoad(again, reader) != 1) {
        broken = "a saved envelope did not load";
    } else {
        bool linked = false;
        const std::vector<const EnvKey *> reloaded = keys_of(again, linked);
        if (!linked || reloaded.size() != keys.size()) broken = "keys were lost in a round trip";
        for (std::size_t i = 0; broken == nullptr && i < keys.size(); ++i) {
            const EnvKey &a = *keys[i];
            const EnvKey &b = *reloaded[i];
            if (!same_number(a.time, b.time) || a.flags != b.flags ||
                !same_side(a.side[0], b.side[0], integer) ||
                !same_side(a.side[1], b.side[1], integer)) {
                broken = "a key changed in a round trip";
            }
        }
        if (broken == nullptr && (EnvPreBehavior(again) != EnvPreBehavior(env) ||
                                  EnvPostBehavior(again) != EnvPreBehavior(env))) {
            broken = "the behaviours changed in a round trip";
        }
    }
    BlkReaderClose(reader);
    EnvDestroyNoUndo(again);
    return broken;
}

inline const char *check_env_load_as(const unsigned char *data, std::size_t size, bool integer) {
    Envelope *env = integer ? EnvCreateInt(nullptr) : EnvCreate(nullptr);
    if (env == nullptr) return nullptr;
    // A key from before, which the load must remove.
    if (integer) {
        EnvAddKeyInt(env, 1000.0, 7);
    } else {
        EnvAddKey(env, 1000.0, 7.0);
    }
    BlkReader *reader = BlkReaderOpenMemory(data, size);
    if (reader == nullptr) {
        EnvDestroyNoUndo(env);
        return nullptr;
    }
    const int loaded = EnvLoad(env, reader);
    const int bad = BlkReaderFailed(reader);
    BlkReaderClose(reader);

    const char *broken = nullptr;
    bool linked = false;
    const std::vector<const EnvKey *> keys = keys_of(env, linked);
    if (loaded == 1 && bad != 0) {
        broken = "EnvLoad reported success on a malformed stream";
    } else if (!linked) {
        broken = "the key list's links disagree";
    } else if (keys.size() > size / kMinKeyBytes) {
        broken = "more keys than the bytes can hold";
    } else {
        broken = check_round_trip(env, keys, integer);
    }
    EnvDestroyNoUndo(env);
    return broken;
}

// Null when every property holds for the bytes; otherwise what broke.
inline const char *check_env_load(const unsigned char *data, std::size_t size) {
    if (BlkReader *reader = BlkReaderOpenMemory(data, size)) {
        const char *broken = walk_blocks(reader, 0);
        BlkReaderClose(reader);
        if (broken != nullptr) return broken;
    }
    if (const char *broken = check_env_load_as(data, size, false)) return broken;
    return check_env_load_as(data, size, true);
}

}  // namespace vx::fuzz
