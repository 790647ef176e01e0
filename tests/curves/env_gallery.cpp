#include "curves/env_gallery.h"

#include <stdexcept>

#include <vexor/undo.h>

#include "curves/envelope.h"

namespace vx::test {

namespace {

// Builds without undo records (the undo system may be running for another test).
class NoRecording {
  public:
    NoRecording() { UndoSysSuspend(); }
    ~NoRecording() { UndoSysResume(); }
    NoRecording(const NoRecording &) = delete;
    NoRecording &operator=(const NoRecording &) = delete;
};

void set_behaviors(Envelope *env, unsigned pre, unsigned post, unsigned interpolation) {
    // Setters refuse unknown behaviour codes; an envelope block read from a damaged stream can
    // still hold one, so evaluation must cope, and the gallery writes such codes in directly.
    if (pre > ENV_BEHAVIOR_NONE || post > ENV_BEHAVIOR_NONE) {
        env->pre_behavior = pre;
        env->post_behavior = post;
    }
    EnvSetPreBehavior(env, pre);
    EnvSetPostBehavior(env, post);
    EnvSetInterpolation(env, interpolation);
}

// Gives key i a value break: `out` on side 1 (side 0 keeps its value), side 1 active or not.
void break_value(Envelope *env, int i, double out, bool side1_active) {
    EnvKey *key = nth_key(env, i);
    EnvKeyBreak(env, key, ENV_BREAK_VALUE);
    EnvKeySetTangentValue(env, key, 1, out);
    EnvKeySetActiveValue(env, key, side1_active ? 1 : 0);
}

// The slopes of the first two keys, whose slope type is manual.
void set_slopes(Envelope *env, double first, double second) {
    EnvKeySetSlopeValue(env, nth_key(env, 0), 0, first);
    EnvKeySetSlopeValue(env, nth_key(env, 1), 0, second);
}

// One curve of the gallery: keys, behaviours and interpolation for make_curve, then what
// make_curve cannot say (run without undo records); or, for curves that are not made of float
// keys through the public functions, a builder of its own.
struct Row {
    const char *name;
    std::vector<KeyDef> keys;
    unsigned pre, post, interpolation;
    std::vector<Sample> samples;
    void (*adjust)(Envelope *) = nullptr;
    Envelope *(*build)() = nullptr;
};

constexpr unsigned C = ENV_INTERP_CURVE, L = ENV_INTERP_LINEAR, S = ENV_INTERP_STEPPED;
constexpr unsigned M = ENV_SLOPE_MANUAL;

const Row kRows[] = {
    // Two keys, auto slopes, constant ends: the end keys are flat (constant holds), so the
    // segment is 10·(3u² − 2u³): 10·5/32 at u = 1/4, 5 at 1/2, 10·27/32 at 3/4.
    {"ease in and out", {{0, 0}, {1, 10}}, 1, 1, C,
     {{-1, 0}, {0, 0}, {0.25, 1.5625}, {0.5, 5}, {0.75, 8.4375}, {1, 10}, {3, 10}}},
    // Reset: 0 outside, but within 0.0001 of an end key that key still shows. The end keys
    // take the slope of the line between them (6), so the segment is the line 4 + 6u.
    {"reset", {{0, 4}, {1, 10}}, 0, 0, C,
     {{-0.5, 0}, {-0.00005, 4}, {0.5, 7}, {1.00005, 10}, {1.0002, 0}, {2, 0}}},
    // Repeat over the line 10·t: -0.25 reads 0.75, -1.6 reads 0.4, 1.25 reads 0.25, 3.6
    // reads 0.6.
    {"repeat", {{0, 0}, {1, 10}}, 2, 2, L, {{-0.25, 7.5}, {-1.6, 4}, {0.4, 4}, {1.25, 2.5}, {3.6, 6}}},
    // Oscillate over 10·t. After: 1.25 is in cycle 1 (mirrored), read at 0.75; 2.25 in
    // cycle 2, at 0.25; 2.4 at 0.4; 3.4 in cycle 3 (mirrored) at 0.6. Before: -0.25 is in
    // cycle 1 (mirrored) at 0.25; -1.25 in cycle 2 at 0.75.
    {"oscillate", {{0, 0}, {1, 10}}, 3, 3, L,
     {{1.25, 7.5}, {2.25, 2.5}, {2.4, 4}, {3.4, 6}, {-0.25, 2.5}, {-1.25, 7.5}}},
    // Offset repeat with both ends offset-repeating: the end keys' auto slopes run across the
    // wrap, ((10 - 0) + (10 - 0)) / (1 + 1) = 10, so the segment is 10·u. Each cycle adds
    // the rise 10: -0.25 reads 0.75 - 10; -1.5 reads 0.5 - 20; 2.5 reads 0.5 + 20.
    {"offset repeat", {{0, 0}, {1, 10}}, 4, 4, C,
     {{-0.25, -2.5}, {-1.5, -15}, {0.5, 5}, {1.25, 12.5}, {2.5, 25}}},
    // Three keys offset-repeating: every auto slope is 1 (the middle key's (4 + -2) / 2, the
    // end keys' across the wrap). The rise is 2 per cycle of 2 s. At u = 1/4 of the first
    // segment: 4·0.15625 + (0.140625 - 0.046875)·1 = 0.71875. 2.5 reads 0.5 (+2), 4.5 reads
    // 0.5 (+4), -0.5 reads 1.5 (-2).
    {"offset repeat of three keys", {{0, 0}, {1, 4}, {2, 2}}, 4, 4, C,
     {{0.25, 0.71875}, {0.5, 2}, {1.5, 3}, {2.5, 4}, {4.5, 6}, {-0.5, 1}}},
    // Linear: the curve goes on along the end keys' tangents, manual slopes 2 and -4. Inside,
    // at u = 1/2: 5 + 0.125·2 + 0.125·4 = 5.75.
    {"linear", {{0, 0, M}, {1, 10, M}}, 5, 5, C, {{-1, -2}, {-3, -6}, {0.5, 5.75}, {2, 6}, {3.5, 0}},
     [](Envelope *env) { set_slopes(env, 2.0, -4.0); }},
    // Linear with auto slopes: the end keys take the slope of the line to their neighbour
    // (4 and -4); the middle key is flat ((4 + -4) / 2).
    {"linear, auto slopes", {{0, 0}, {1, 4}, {2, 0}}, 5, 5, C,
     {{-1, -4}, {3, -4}, {0.5, 2.5}, {1, 4}}},
    // None evaluates as constant; the end keys take the line's slope 7: 3 + 7u inside.
    {"none", {{0, 3}, {1, 10}}, 6, 6, C, {{-1, 3}, {0.5, 6.5}, {2, 10}}},
    // An unknown behaviour code reads the time as it stands: before the keys the first key's
    // active value (side 1's 5, where constant would give side 0's 3). The segment starts from
    // the outgoing 5, slopes 5 at both ends: 5 + 5u.
    {"unknown behaviour", {{0, 3}, {1, 10}}, 9, 9, C, {{-1, 5}, {0, 5}, {0.5, 7.5}, {2, 10}},
     [](Envelope *env) { break_value(env, 0, 5.0, true); }},
    // Manual slopes 2 and -1 over 2 s. u = 1/4: 0.15625·4 + (0.140625·2 + 0.046875·1)·2;
    // u = 1/2: 2 + (0.125·2 + 0.125·1)·2.
    {"manual slopes", {{0, 0, M}, {2, 4, M}}, 1, 1, C, {{0.5, 1.28125}, {1, 2.75}},
     [](Envelope *env) { set_slopes(env, 2.0, -1.0); }},
    // Linear out meeting linear in is a straight line. The second segment starts with the
    // linear-in slope (10 - 0)/1 and ends flat: 5 + 0.125·10.
    {"linear in and out", {{0, 0, ENV_SLOPE_LINEAR_OUT}, {1, 10, ENV_SLOPE_LINEAR_IN}, {2, 0}}, 1,
     1, C, {{0.3, 3}, {1.5, 6.25}}},
    // Auto flat: the inner keys sit next to a key of the same value, so every slope is 0.
    {"auto flat",
     {{0, 0, ENV_SLOPE_AUTO_FLAT},
      {1, 5, ENV_SLOPE_AUTO_FLAT},
      {2, 5, ENV_SLOPE_AUTO_FLAT},
      {3, 0, ENV_SLOPE_AUTO_FLAT}},
     1, 1, C, {{0.25, 0.78125}, {0.5, 2.5}, {1.5, 5}, {2.5, 2.5}}},
    // The same keys with auto slopes 0, 2.5, -2.5, 0: the middle segment overshoots to
    // 5 + 0.125·2.5 + 0.125·2.5.
    {"auto", {{0, 0}, {1, 5}, {2, 5}, {3, 0}}, 1, 1, C, {{0.5, 2.1875}, {1.5, 5.625}, {2.5, 2.1875}}},
    // A stepped incoming side holds the earlier key's value up to the key. The key's outgoing
    // slope (type stepped) is 0, so the next segment eases from 5 to 3.
    {"stepped slope", {{0, 1}, {1, 5, ENV_SLOPE_STEPPED}, {2, 3}}, 1, 1, C,
     {{0.5, 1}, {0.9998, 1}, {1, 5}, {1.5, 4}}},
    // Stepped interpolation: each key's value right up to the next key (0.0001 short of it
    // the next key takes over).
    {"stepped interpolation", {{0, 1}, {1, 5}, {2, 3}}, 1, 1, S,
     {{0.5, 1}, {0.9998, 1}, {0.99995, 5}, {1.5, 5}, {1.9998, 5}, {2.5, 3}}},
    // Slope type 8 is not a type: slope 0 everywhere.
    {"unknown slope type", {{0, 0, 8}, {1, 10, 8}, {2, 0, 8}}, 2, 2, C,
     {{0.25, 1.5625}, {0.5, 5}, {1.5, 5}}},
    // A manual weight type with a stored weight of 0 still means the automatic weight: the
    // handles reach a third of the way, the time cubic is x(u) = u and the value cubic is
    // 10·(3u² - 2u³). Fourteen halvings for 0.3 end at the midpoint 4915/16384.
    {"automatic weights", {{0, 0}, {1, 10}}, 1, 1, C, {{0.3, 2.1598461931944257}},
     [](Envelope *env) { EnvKeySetWeightType(env, nth_key(env, 0), 0, 1); }},
    // Stored weights 0.5 on flat keys: P1 = (0.5, 0), P2 = (0.5, 10), so x(u) = u³ - 1.5u² +
    // 1.5u and y(u) = -20u³ + 30u². Fourteen halvings end at 3309/16384 for 0.25, at
    // 8193/16384 for 0.5 (x(1/2) is exactly 1/2, so the first step keeps the upper half) and
    // at 15211/16384 for 0.9.
    {"stored weights", {{0, 0}, {1, 10}}, 1, 1, C,
     {{0.25, 1.0589365612167967}, {0.5, 5.0009155273392025}, {0.9, 9.853567413142628}},
     [](Envelope *env) {
         for (int i = 0; i < 2; ++i) {
             EnvKeySetWeightType(env, nth_key(env, i), 0, 1);
             EnvKeySetWeightValue(env, nth_key(env, i), 0, 0.5);
         }
     }},
    // A value break with side 1 active: the key shows 8 at its own time, the segment before
    // ends at side 0's 5, the one after starts from side 1's 8.
    {"broken value, side 1 active", {{0, 0}, {1, 5}, {2, 0}}, 1, 1, L,
     {{0.5, 2.5}, {0.9998, 4.999}, {0.99995, 8}, {1, 8}, {1.5, 4}},
     [](Envelope *env) { break_value(env, 1, 8.0, true); }},
    {"broken value, side 0 active", {{0, 0}, {1, 5}, {2, 0}}, 1, 1, L,
     {{0.5, 2.5}, {1, 5}, {1.5, 4}}, [](Envelope *env) { break_value(env, 1, 8.0, false); }},
    // A slope break: the key comes in flat (side 0) and leaves at 20 (side 1). After it:
    // 10 + 20·h2, with h2 = 0.140625 at u = 1/4 and 0.125 at 1/2.
    {"broken slope", {{0, 0, M}, {1, 10, M}, {2, 10, M}}, 1, 1, C,
     {{0.5, 5}, {1, 10}, {1.25, 12.8125}, {1.5, 12.5}},
     [](Envelope *env) {
         EnvKey *key = nth_key(env, 1);
         EnvKeyBreak(env, key, ENV_BREAK_SLOPE);
         EnvKeySetSlopeValue(env, key, 1, 20.0);
     }},
    // Integer keys 2, 7, -3 with offset repeat (rise -5 per 2 s cycle), held up to the next
    // key. 2.5 reads 0.5 - 5; -0.5 reads 1.5 + 5; 6.5 is in cycle 3, reads 0.5 - 15.
    {"integer", {}, 4, 4, C, {{0.5, 2}, {1.9998, 7}, {2, -3}, {2.5, -3}, {-0.5, 12}, {6.5, -13}},
     nullptr,
     [] {
         Envelope *env = EnvCreateInt(nullptr);
         const int values[] = {2, 7, -3};
         for (int i = 0; i < 3; ++i) EnvAddKeyInt(env, i, values[i]);
         return env;
     }},
    // A single key: every behaviour that repeats has no span and gives its value.
    {"single key", {{1, 4}}, 2, 3, C, {{-5, 4}, {1, 4}, {7, 4}}},
    {"single key, linear", {{1, 4}}, 5, 5, C, {{-5, 4}, {7, 4}}},
    // Two keys forced onto one time (only raw list edits can do that): no span, so the
    // repeating behaviours give the last key's value, and inside it is the last key too.
    {"keys at one time", {}, 2, 4, C, {{0, 6}, {1, 6}, {2, 6}}, nullptr,
     [] {
         Envelope *env = EnvCreate(nullptr);
         for (double value : {3.0, 6.0}) {
             EnvKey *key = vx::env::new_key(1.0);
             key->side[0].value.f = key->side[1].value.f = value;
             key->side[0].flags = key->side[1].flags = ENV_SLOPE_AUTO;
             vx::env::append(*env, key);
         }
         return env;
     }},
};

Envelope *build(const Row &row) {
    if (row.build == nullptr) return make_curve(row.keys, row.pre, row.post, row.interpolation);
    NoRecording quiet;
    Envelope *env = row.build();
    set_behaviors(env, row.pre, row.post, row.interpolation);
    return env;
}

}  // namespace

EnvKey *nth_key(Envelope *env, int i) {
    EnvKeyList *list = EnvGetKeyList(env);
    for (EnvKey *k = list->head; k->succ != nullptr; k = k->succ) {
        if (i-- == 0) return k;
    }
    return nullptr;
}

Envelope *make_curve(const std::vector<KeyDef> &keys, unsigned pre, unsigned post,
                     unsigned interpolation) {
    Envelope *env = EnvCreate(nullptr);
    NoRecording quiet;
    for (const KeyDef &def : keys) {
        EnvKey *key = EnvAddKey(env, def.time, def.value);
        // Going through manual first makes the type take whatever the key had (a type is
        // ignored when the side already has one of its bits).
        EnvKeySetSlopeType(env, key, 0, ENV_SLOPE_MANUAL);
        EnvKeySetSlopeType(env, key, 0, def.slope_type);
    }
    set_behaviors(env, pre, post, interpolation);
    return env;
}

const std::vector<GalleryCurve> &env_gallery() {
    static const std::vector<GalleryCurve> gallery = [] {
        std::vector<GalleryCurve> g;
        for (const Row &row : kRows) {
            g.push_back({row.name,
                         [&row] {
                             Envelope *env = build(row);
                             NoRecording quiet;
                             if (row.adjust != nullptr) row.adjust(env);
                             return env;
                         },
                         row.samples});
        }
        return g;
    }();
    return gallery;
}

const GalleryCurve &gallery_curve(const std::string &name) {
    for (const GalleryCurve &curve : env_gallery()) {
        if (curve.name == name) return curve;
    }
    throw std::out_of_range("no gallery curve named " + name);
}

}  // namespace vx::test
