#include "support/property_volume.h"

#include <cstdio>
#include <cstdlib>

namespace vx::test {

namespace {

std::uint64_t number_from(const char *name, std::uint64_t fallback) {
    const char *text = std::getenv(name);
    if (text == nullptr || *text == '\0') return fallback;
    char *end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (end == text || *end != '\0') {
        std::fprintf(stderr, "%s=%s is not a number; using %llu\n", name, text,
                     static_cast<unsigned long long>(fallback));
        return fallback;
    }
    return value;
}

void print_totals() {
    const PropertyTotals &t = property_totals();
    std::printf("[volume] totals: %llu allocation-failure points, %llu undo sequences\n",
                static_cast<unsigned long long>(t.fault_points),
                static_cast<unsigned long long>(t.undo_sequences));
}

}  // namespace

const PropertyVolume &property_volume() {
    static const PropertyVolume volume = [] {
        PropertyVolume v;
        v.volume = static_cast<std::uint32_t>(number_from("VEXOR_PROPERTY_VOLUME", 1));
        if (v.volume == 0) v.volume = 1;
        const std::uint64_t replay = number_from("VEXOR_PROPERTY_REPLAY", 0);
        if (replay != 0) {
            v.first_seed = replay;
            v.replay = true;
        } else {
            v.first_seed = number_from("VEXOR_PROPERTY_SEED", 0) + 1;
        }
        v.faulted_every = number_from("VEXOR_PROPERTY_FAULTED_EVERY", 8);
        if (v.faulted_every == 0) v.faulted_every = 1;
        if (v.volume != 1 || v.first_seed != 1) std::atexit(print_totals);
        return v;
    }();
    return volume;
}

PropertyTotals &property_totals() {
    static PropertyTotals totals;
    return totals;
}

}  // namespace vx::test
