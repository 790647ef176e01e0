// The item types of transforms and placed items, the kind table, and the module's start: the
// types, the graphs "xfrmCore" and "xfrmLocal", the modifiers and the scene file client.
#include <cstring>
#include <initializer_list>
#include <span>
#include <utility>

#include "foundation/failure.h"
#include "foundation/registry.h"
#include "groups/xfrm.h"
#include "scene/channel_desc.h"
#include "scene/package_registry.h"
#include "scene/scene.h"

namespace vx::xfrm {
namespace {

using cine::ChannelLine;

constexpr const char *kKindNames[kKinds] = {"scale",         "rotation",         "translation",
                                            "pivot",         "pivotComp",        "shear",
                                            "pivotRotation", "pivotRotationComp"};

constexpr TextHint kOrderHints[] = {{0, "xyz"}, {1, "xzy"}, {2, "yxz"},  {3, "yzx"},
                                    {4, "zxy"}, {5, "zyx"}, {0, nullptr}};

constexpr ChannelLine kCoreMatrices[] = {
    cine::object_channel("localMatrix", cine::ObjectKind::matrix),
    cine::object_channel("parentMatrix", cine::ObjectKind::matrix),
    cine::object_channel("wposMatrix", cine::ObjectKind::matrix),
    cine::object_channel("wrotMatrix", cine::ObjectKind::matrix),
    cine::object_channel("wsclMatrix", cine::ObjectKind::matrix),
    cine::object_channel("wpivPosMatrix", cine::ObjectKind::matrix),
    cine::object_channel("wpivRotMatrix", cine::ObjectKind::matrix),
    cine::object_channel("worldMatrix", cine::ObjectKind::matrix).internal(),
    cine::object_channel("wParentMatrix", cine::ObjectKind::matrix).internal(),
};
// The inherit switches keep the legacy storage code 10 with an integer default of 1.
constexpr int kInheritStorage = 10;
constexpr const char *kInherit[] = {"inheritPos", "inheritRot", "inheritScl"};

constexpr ChannelLine kTransformLines[] = {
    cine::object_channel("matrix", cine::ObjectKind::matrix),
    cine::int_channel("type", 0),
};
constexpr ChannelLine kTranslationLines[] = {
    cine::vector_channel("pos", cine::Vector::xyz).usage(CINE_USAGE_DISTANCE)};
constexpr ChannelLine kRotationLines[] = {
    cine::vector_channel("rot", cine::Vector::xyz).usage(CINE_USAGE_ANGLE),
    cine::choice_channel("order", kOrderHints, 0)};
constexpr ChannelLine kScaleLines[] = {
    cine::vector_channel("scl", cine::Vector::xyz, 1.0).usage(CINE_USAGE_PERCENT)};
constexpr ChannelLine kShearLines[] = {
    cine::float_channel("shearXY"), cine::float_channel("shearXZ"), cine::float_channel("shearYZ")};

struct Tag {
    const char *name;
    const char *value;
};

struct TypeLine {
    const char *name;
    std::uint32_t code;
    std::uint32_t super;
    std::span<const ChannelLine> channels;
    std::initializer_list<Tag> tags;
};

// Supers come before their subtypes.
const TypeLine kTypes[] = {
    {"xfrmcore", kCoreType, 0, kCoreMatrices, {}},
    {"locator", kLocatorType, kCoreType, {}, {{"deformation.channel", "deformation"}}},
    {"camera", kCameraType, kLocatorType, {}, {{"shade.context", "camera"}}},
    {"light",
     kLightType,
     kLocatorType,
     {},
     {{"pkg.createCmd", "light.create"}, {"shade.context", "light"}}},
    {"groupLocator", kGroupLocatorType, kLocatorType, {}, {{"isMaskItem", "1"}}},
    {"transform", kTransformType, 0, kTransformLines, {}},
    {"translation", kTranslationType, kTransformType, kTranslationLines, {}},
    {"rotation",
     kRotationType,
     kTransformType,
     kRotationLines,
     {{"deformation.channel", "deformation"}}},
    {"scale", kScaleType, kTransformType, kScaleLines, {}},
    {"shear", kShearType, kTransformType, kShearLines, {}},
};

// The inherit switches, through the general channel builder since no typed line has their
// storage code.
void add_inherit_channels() {
    cine::ChannelList extra;
    cine::ChannelBuilder builder(extra);
    for (const char *name : kInherit) {
        builder.begin(name, kInheritStorage, nullptr);
        builder.default_int(1);
    }
    cine::ChannelList &channels = cine::definition("xfrmcore").channels;
    channels.reserve(channels.size() + extra.size());
    for (cine::ChannelDesc &desc : extra) channels.push_back(std::move(desc));
}

void define_types() {
    for (const TypeLine &line : kTypes) {
        if (cine::find_package(line.name) != nullptr) continue;
        cine::define(line.name);
        cine::add_channels(line.name, line.channels);
        if (line.code == kCoreType) add_inherit_channels();
        HostServer *server = cine::definition(line.name).server;
        for (const Tag &tag : line.tags) host::add_tag(server, tag.name, tag.value);
        if (cine::define_type(line.code, static_cast<std::int32_t>(line.super), line.name) !=
            line.code)
            fail(rc::failed, "a transform type could not be defined");
    }
}

}  // namespace

const char *kind_name(int kind) noexcept {
    return kind >= 0 && kind < kKinds ? kKindNames[kind] : nullptr;
}

int kind_named(const char *name) noexcept {
    if (name == nullptr) return -1;
    for (int kind = 0; kind < kKinds; ++kind) {
        if (std::strcmp(kKindNames[kind], name) == 0) return kind;
    }
    return -1;
}

std::uint32_t kind_type(int kind) noexcept {
    switch (kind) {
        case kScale:
            return kScaleType;
        case kRotation:
        case kPivotRotation:
        case kPivotRotationComp:
            return kRotationType;
        case kShear:
            return kShearType;
        default:
            return kTranslationType;
    }
}

namespace {
// Counted like the modules it starts with, so that only the balancing stop takes it down.
unsigned starts = 0;
}  // namespace

void start() {
    if (starts++ > 0) return;
    OnFailure uncount([] { starts = 0; });
    define_types();
    cine::define_graph("xfrmCore", 1);
    cine::define_graph("xfrmLocal", 1);
    register_modifiers();
    register_io();
}

void stop() noexcept {
    if (starts == 0 || --starts > 0) return;
    unregister_io();
}

}  // namespace vx::xfrm
