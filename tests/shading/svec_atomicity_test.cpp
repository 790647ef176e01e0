// Allocation failures in packet definition, type edits and vector creation leave everything
// as it was and leak nothing.
#include <gtest/gtest.h>

#include <vexor/host.h>
#include <vexor/svec.h>
#include <vexor/sys/component.h>

#include <functional>
#include <string>

#include "support/atomicity.h"

namespace vx::test {
namespace {

std::string dump(const VType *t) {
    std::string s;
    for (unsigned n = 0; n < VTypeCount(t); ++n) {
        const unsigned i = VTypePacketIndex(t, n);
        s += std::to_string(i) + "@" + std::to_string(VTypePacketOffset(t, i)) + "/" +
             std::to_string(VTypePacketFlags(t, i)) + " ";
    }
    return s + std::to_string(VTypeSize(t));
}

// Each target starts the module afresh, so every attempt meets the same registry.
struct ModuleTarget : AtomicityTarget {
    ModuleTarget() {
        SVecStartup();
        base = VTypeAllocate("sample");
        VTypeAddPacket(base, "shade.diffuse", 1);
        VTypeAddPacket(base, "sample.ray", 2);
    }
    ~ModuleTarget() override {
        if (made_vector != nullptr) GVDestroy(made_vector);
        if (made_type != nullptr) VTypeFree(made_type);
        VTypeFree(base);
        SVecShutdown();
    }
    std::string snapshot() override {
        std::string s = dump(base) + " | " + std::to_string(VPacketDefCount("sample")) + " " +
                        std::to_string(VPacketDefCount("extra")) + " " +
                        std::to_string(HostServerCount("vectorPacket"));
        if (made_type != nullptr) s += " | " + dump(made_type);
        if (made_vector != nullptr) s += " | vector";
        return s;
    }
    bool edit() override { return run(*this); }

    std::function<bool(ModuleTarget &)> run;
    VType *base = nullptr;
    VType *made_type = nullptr;
    GVector *made_vector = nullptr;
};

void sweep(const char *name, std::function<bool(ModuleTarget &)> run) {
    const AtomicityReport report = check_atomicity(name, [&] {
        auto target = std::make_unique<ModuleTarget>();
        target->run = run;
        return target;
    });
    EXPECT_GT(report.tried, 0u) << name;
}

TEST(SVecAtomicity, PacketDefinition) {
    sweep("VPacketDefine", [](ModuleTarget &) {
        return VPacketDefine("sample extra", "custom.new", nullptr, 8) == 0;
    });
}

TEST(SVecAtomicity, AddingAndMergingPackets) {
    sweep("VTypeAddPacket",
          [](ModuleTarget &t) { return VTypeAddPacket(t.base, "sample.position", 4) == 1; });
    sweep("VTypeAddCategoryPackets",
          [](ModuleTarget &t) { return VTypeAddCategoryPackets(t.base) == 36; });
    sweep("VTypeIntersect", [](ModuleTarget &t) {
        VType *other = VTypeAllocate("sample");
        if (other == nullptr) return false;
        const bool ok =
            VTypeAddPacket(other, "sample.ray", 0) == 1 && VTypeIntersect(t.base, other) == 1;
        VTypeFree(other);
        return ok;
    });
}

TEST(SVecAtomicity, TypeCopiesAndVectorCreation) {
    sweep("VTypeCopy",
          [](ModuleTarget &t) { return (t.made_type = VTypeCopy(t.base)) != nullptr; });
    sweep("GVCreate", [](ModuleTarget &t) {
        return (t.made_vector = GVCreate(t.base, nullptr, 1)) != nullptr;
    });
}

}  // namespace
}  // namespace vx::test
