#include "curves/env_persist.h"

#include <cmath>
#include <limits>
#include <memory>

#include <vexor/env_io.h>

#include "curves/env_edits.h"
#include "curves/env_index.h"
#include "foundation/guard.h"
#include "foundation/log.h"

namespace vx::env {

namespace {

// The reader's table; the padding entry is there for people, the reader skips padding anyway.
constexpr BlkBlockId kBlocks[] = {
    {blk::kPadId, "-p-a-d-"}, {kBlockEnds, "ends"}, {kBlockKey, "key"}, {0, nullptr}};

// Narrowing that is defined for every double: out-of-range values become infinities.
float narrow(double value) noexcept {
    constexpr double kMax = static_cast<double>(std::numeric_limits<float>::max());
    if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
    if (value > kMax) return std::numeric_limits<float>::infinity();
    if (value < -kMax) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

void write_fp(BlkWriter &writer, double value) {
    const float narrowed = narrow(value);
    writer.write_fp(&narrowed, 1);
}

void write_side(BlkWriter &writer, const EnvKeySide &side, bool integer) {
    const auto flags = static_cast<std::int32_t>(side.flags);
    writer.write_i4(&flags, 1);
    if (integer) {
        const std::int32_t value = side.value.i;
        writer.write_i4(&value, 1);
    } else {
        write_fp(writer, side.value.f);
    }
    write_fp(writer, side.slope);
    write_fp(writer, side.weight);
}

// Reads the fields of a block one by one, and remembers whether any was missing.
class Fields {
  public:
    explicit Fields(BlkReader &reader) noexcept : reader_(reader) {}
    bool complete() const noexcept { return complete_; }

    double fp() noexcept {
        float value = 0.0f;
        complete_ = complete_ && reader_.read_fp(&value, 1) == 1;
        return complete_ ? static_cast<double>(value) : 0.0;
    }
    std::uint32_t u4() noexcept {
        std::uint32_t value = 0;
        complete_ = complete_ && reader_.read_u4(&value, 1) == 1;
        return complete_ ? value : 0;
    }
    std::int32_t i4() noexcept {
        std::int32_t value = 0;
        complete_ = complete_ && reader_.read_i4(&value, 1) == 1;
        return complete_ ? value : 0;
    }

  private:
    BlkReader &reader_;
    bool complete_ = true;
};

void read_side(Fields &fields, EnvKeySide &side, bool integer) noexcept {
    side.flags = static_cast<std::uint32_t>(fields.i4());
    if (integer) {
        side.value.i = fields.i4();
    } else {
        side.value.f = fields.fp();
    }
    side.slope = fields.fp();
    side.weight = fields.fp();
}

struct LeaveBlock {
    BlkReader &reader;
    ~LeaveBlock() { reader.end(); }
};

struct KeyFree {
    void operator()(EnvKey *key) const noexcept { free_key(key); }
};

// One "key" block: a new key filled field by field and appended, or freed when the block
// is too short to hold it.
bool read_key(Envelope &env, BlkReader &reader) {
    std::unique_ptr<EnvKey, KeyFree> key(new_key(0.0));
    const bool integer = env.type == kTypeInt;
    Fields fields(reader);
    key->time = fields.fp();
    key->flags = fields.u4();
    read_side(fields, key->side[0], integer);
    if ((key->flags & (ENV_BREAK_VALUE | ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT)) != 0) {
        read_side(fields, key->side[1], integer);
    }
    if (!fields.complete()) return false;
    reserve_index(env, key_count(env) + 1);
    append(env, key.release());
    return true;
}

// The "ends" block. Writers store the pre behaviour alone; the post behaviour then takes
// the same value, which keeps the common case of one behaviour at both ends. A second value,
// when a stream has one, is the post behaviour.
bool read_ends(Envelope &env, BlkReader &reader) noexcept {
    std::uint32_t ends[2] = {0, 0};
    const std::size_t count = reader.read_u4(ends, 2);
    if (count == 0) return false;
    env.pre_behavior = ends[0];
    env.post_behavior = count == 2 ? ends[1] : ends[0];
    mark_changed(env);
    return true;
}

}  // namespace

void save(const Envelope &env, BlkWriter &writer) {
    if (env.pre_behavior != ENV_BEHAVIOR_CONSTANT || env.post_behavior != ENV_BEHAVIOR_CONSTANT) {
        writer.begin(kBlockEnds);
        writer.write_u4(&env.pre_behavior, 1);
        writer.end();
    }
    const bool integer = env.type == kTypeInt;
    for (const EnvKey *key = first_key(env); key != nullptr; key = next_key(key)) {
        writer.begin(kBlockKey);
        write_fp(writer, key->time);
        writer.write_u4(&key->flags, 1);
        write_side(writer, key->side[0], integer);
        if ((key->flags & (ENV_BREAK_VALUE | ENV_BREAK_SLOPE | ENV_BREAK_WEIGHT)) != 0) {
            write_side(writer, key->side[1], integer);
        }
        writer.end();
    }
}

bool load(Envelope &env, BlkReader &reader) {
    clear_keys(env, /*notify_change=*/false);
    env.pre_behavior = ENV_BEHAVIOR_CONSTANT;
    env.post_behavior = ENV_BEHAVIOR_CONSTANT;
    for (;;) {
        const std::uint32_t id = reader.find(kBlocks);
        if (id == 0) break;
        bool complete = false;
        {
            // Leaves the block however the read ends, so the caller can end its own block.
            LeaveBlock leave{reader};
            complete = id == kBlockKey ? read_key(env, reader) : read_ends(env, reader);
        }
        if (!complete) {
            VX_FAIL_LINE("envelope block too short:", id == kBlockKey ? "key" : "ends");
            return false;
        }
    }
    if (reader.bad()) {
        VX_FAIL_LINE("malformed block stream while loading an envelope", nullptr);
        return false;
    }
    return true;
}

}  // namespace vx::env

extern "C" VX_API int EnvSave(Envelope *env, BlkWriter *w) {
    if (env == nullptr || w == nullptr) return 0;
    return vx::guard(0, [&] {
        vx::env::save(*env, *w);
        return 1;
    });
}

extern "C" VX_API int EnvLoad(Envelope *env, BlkReader *r) {
    if (env == nullptr || r == nullptr) return 0;
    return vx::guard(0, [&] { return vx::env::load(*env, *r) ? 1 : 0; });
}
