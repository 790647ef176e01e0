// The texture-layer module: start and stop, the built-in layer types and the registry of
// layer types.
#include "shading/tlayer_module.h"

#include <vexor/action.h>
#include <vexor/cinema.h>
#include <vexor/package.h>
#include <vexor/value.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/failure.h"
#include "foundation/guard.h"

namespace vx::shade {
namespace {

struct LayerType {
    std::uint32_t code;
    std::string name;
    const TextureLayerOps *ops;
    void *client;
};

struct Module {
    unsigned starts = 0;
    std::vector<LayerType> types;
    std::uint32_t mask = CINE_TYPE_NONE;
    std::uint32_t material = CINE_TYPE_NONE;
    std::uint32_t output = CINE_TYPE_NONE;
};

Module &module() noexcept {
    static Module m;
    return m;
}

constexpr const char *kBase = "textureLayer";
const char *const kNone = nullptr;

// The channels of every layer, on the root type.
bool add_base_channels() {
    return CinePackageAddChannel(kBase, CINE_CH_NAME, "enable", VX_STORE_INT, kNone,
                                 CINE_CH_DEFAULT_INT, 1, CINE_CH_HINTS, kNone, 1u, CINE_CH_NAME,
                                 "opacity", VX_STORE_FLOAT, kNone, CINE_CH_DEFAULT, 1.0,
                                 CINE_CH_USAGE, CINE_USAGE_PERCENT, CINE_CH_NAME, "blend",
                                 VX_STORE_INT, kNone, CINE_CH_DEFAULT_INT, 0, CINE_CH_NAME,
                                 "effect", VX_STORE_TEXT, kNone, CINE_CH_NAME, kNone) != 0;
}

bool add_mask_channels() {
    return CinePackageAddChannel(kMask, CINE_CH_NAME, "ptag", VX_STORE_TEXT, kNone, CINE_CH_NAME,
                                 "ptyp", VX_STORE_TEXT, kNone, CINE_CH_NAME, kNone) != 0;
}

bool add_material_channels() {
    return CinePackageAddChannel(
               kMaterial, CINE_CH_NAME, "diffCol", VX_STORE_FLOAT, kNone, CINE_CH_VECTOR,
               CINE_VECTOR_RGB, kNone, CINE_CH_DEFAULT, 0.8, CINE_CH_USAGE, CINE_USAGE_COLOR,
               CINE_CH_NAME, "diffAmt", VX_STORE_FLOAT, kNone, CINE_CH_DEFAULT, 0.8, CINE_CH_NAME,
               "specAmt", VX_STORE_FLOAT, kNone, CINE_CH_NAME, "rough", VX_STORE_FLOAT, kNone,
               CINE_CH_DEFAULT, 0.4, CINE_CH_NAME, kNone) != 0;
}

bool add_output_channels() {
    return CinePackageAddChannel(kOutput, CINE_CH_NAME, "filename", VX_STORE_TEXT, kNone,
                                 CINE_CH_NAME, "watermark", VX_STORE_INT, kNone, CINE_CH_HINTS,
                                 kNone, 1u, CINE_CH_NAME, "levelLow", VX_STORE_FLOAT, kNone,
                                 CINE_CH_NAME, "levelHigh", VX_STORE_FLOAT, kNone, CINE_CH_DEFAULT,
                                 1.0, CINE_CH_NAME, kNone) != 0;
}

bool add_constant_channels() {
    return CinePackageAddChannel("constant", CINE_CH_NAME, "color", VX_STORE_FLOAT, kNone,
                                 CINE_CH_VECTOR, CINE_VECTOR_RGB, kNone, CINE_CH_DEFAULT, 1.0,
                                 CINE_CH_USAGE, CINE_USAGE_COLOR, CINE_CH_NAME, "value",
                                 VX_STORE_FLOAT, kNone, CINE_CH_DEFAULT, 1.0, CINE_CH_NAME,
                                 kNone) != 0;
}

bool add_checker_channels() {
    return CinePackageAddChannel(
               "checker", CINE_CH_NAME, "color", VX_STORE_FLOAT, kNone, CINE_CH_VECTOR,
               CINE_VECTOR_RGB, kNone, CINE_CH_DEFAULT, 1.0, CINE_CH_USAGE, CINE_USAGE_COLOR,
               CINE_CH_NAME, "color2", VX_STORE_FLOAT, kNone, CINE_CH_VECTOR, CINE_VECTOR_RGB,
               kNone, CINE_CH_USAGE, CINE_USAGE_COLOR, CINE_CH_NAME, "size", VX_STORE_FLOAT, kNone,
               CINE_CH_DEFAULT, 1.0, CINE_CH_USAGE, CINE_USAGE_DISTANCE, CINE_CH_NAME, kNone) != 0;
}

// A package with its channels, defined once: packages outlive this module while the scene
// module runs on, so a second start finds them.
void define_package(const char *name, bool (*channels)()) {
    if (CinePackageFind(name) != nullptr) return;
    CinePackageDefine(name);
    if (CinePackageFind(name) == nullptr || !channels()) {
        fail(rc::no_memory, "a texture layer package could not be defined");
    }
}

void read_rgb(CineItem *layer, CineEval *eval, const char *name, double rgb[3]) {
    static const char kLetters[] = "RGB";
    for (int c = 0; c < 3; ++c) {
        const std::string channel = std::string(name) + '.' + kLetters[c];
        rgb[c] = read_number(layer, eval, channel.c_str(), 0.0);
    }
}

int evaluate_constant(void *, CineItem *layer, CineEval *eval, GVector *, TextureLayerValue *out) {
    read_rgb(layer, eval, "color", out->rgb);
    out->value = read_number(layer, eval, "value", 1.0);
    return 1;
}

// Squares of `size` in texture space alternate between the two colours; the value is 1 on the
// first colour and 0 on the second.
int evaluate_checker(void *, CineItem *layer, CineEval *eval, GVector *sample,
                     TextureLayerValue *out) {
    double where[3] = {0.0, 0.0, 0.0};
    const unsigned input = VPacketOffset("sample", "texture.input");
    if (const auto *in = static_cast<const VPTextureInput *>(
            sample != nullptr ? GVPacket(sample, input, GV_READ) : nullptr)) {
        for (int c = 0; c < 3; ++c) where[c] = static_cast<double>(in->tPos[c]);
    }
    double size = read_number(layer, eval, "size", 1.0);
    if (!(size > 0.0)) size = 1.0;
    long parity = 0;
    for (double w : where) parity += static_cast<long>(std::floor(w / size));
    const bool first = (parity & 1) == 0;
    read_rgb(layer, eval, first ? "color" : "color2", out->rgb);
    out->value = first ? 1.0 : 0.0;
    return 1;
}

unsigned output_flags(void *, CineItem *) {
    return TLAYER_FLAG_OUTPUT;
}

const TextureLayerOps kConstantOps = {nullptr, evaluate_constant};
const TextureLayerOps kCheckerOps = {nullptr, evaluate_checker};
const TextureLayerOps kOutputOps = {output_flags, nullptr};

std::uint32_t register_type(const char *name, const TextureLayerOps *ops, void *client,
                            std::uint32_t super) {
    if (name == nullptr || *name == '\0') fail(rc::bad_argument, "a layer type needs a name");
    if (super == 0) super = TLAYER_TYPE_CODE;
    // No type query before the type is defined: a query resolves every package it knows, and
    // would take this one for an add-on.
    if (CinePackageFind(name) == nullptr) {
        CinePackageDefine(name);
        if (CinePackageFind(name) == nullptr) fail(rc::no_memory, "no package for the layer");
    }
    const std::uint32_t code = CineDefineType(0, static_cast<std::int32_t>(super), name);
    if (code == CINE_TYPE_NONE || CineTypeTest(code, TLAYER_TYPE_CODE) == 0) {
        fail(rc::refused, "the package is another kind of type");
    }
    Module &m = module();
    for (LayerType &t : m.types) {
        if (t.code == code) {
            t.ops = ops;
            t.client = client;
            return code;
        }
    }
    m.types.push_back({code, name, ops, client});
    return code;
}

}  // namespace

void start_module() {
    Module &m = module();
    if (m.starts > 0) {
        ++m.starts;
        return;
    }
    if (SVecStartup() == 0) fail(rc::no_memory, "the shading vectors could not start");
    OnFailure stop_vectors([] { SVecShutdown(); });
    CinemaStartup();
    OnFailure stop_scenes([] { CinemaShutdown(); });
    if (CinemaGraphDefault(kShadeGraph, 1) == 0) fail(rc::no_memory, "no shadeLoc graph");
    define_package(kBase, add_base_channels);
    if (CineDefineType(TLAYER_TYPE_CODE, 0, kBase) != TLAYER_TYPE_CODE) {
        fail(rc::refused, "the texture layer type could not be defined");
    }
    // Each package becomes a type as soon as it is defined, before any other is looked at.
    OnFailure forget_types([&] { m.types.clear(); });
    define_package(kMask, add_mask_channels);
    m.mask = register_type(kMask, nullptr, nullptr, 0);
    CineTypeAddTag(m.mask, "isMaskItem", ".");
    define_package(kMaterial, add_material_channels);
    m.material = register_type(kMaterial, nullptr, nullptr, 0);
    define_package(kOutput, add_output_channels);
    m.output = register_type(kOutput, &kOutputOps, nullptr, 0);
    define_package("constant", add_constant_channels);
    register_type("constant", &kConstantOps, nullptr, 0);
    define_package("checker", add_checker_channels);
    register_type("checker", &kCheckerOps, nullptr, 0);
    m.starts = 1;
}

void stop_module() noexcept {
    Module &m = module();
    if (m.starts == 0 || --m.starts > 0) return;
    m.types.clear();
    CinemaShutdown();
    SVecShutdown();
}

bool started() noexcept {
    return module().starts > 0;
}

std::uint32_t mask_type() noexcept {
    return module().mask;
}
std::uint32_t material_type() noexcept {
    return module().material;
}
std::uint32_t output_type() noexcept {
    return module().output;
}

bool is_a(const CineItem *item, std::uint32_t type) noexcept {
    return item != nullptr && type != CINE_TYPE_NONE && CineItemTestType(item, type) != 0;
}

bool is_layer(const CineItem *item) noexcept {
    return is_a(item, TLAYER_TYPE_CODE);
}

const TextureLayerOps *ops_of(const CineItem *item, void **client) noexcept {
    if (item == nullptr) return nullptr;
    for (std::uint32_t code = CineItemType(item); code != 0; code = CineLookupSuper(code)) {
        for (const LayerType &t : module().types) {
            if (t.code == code) {
                if (client != nullptr) *client = t.client;
                return t.ops;
            }
        }
    }
    return nullptr;
}

CineAction *setup_action(const CineItem *item) noexcept {
    Cinema *scene = item != nullptr ? CineItemContext(item) : nullptr;
    return scene != nullptr ? CineActionGetDefault(scene, 0) : nullptr;
}

double read_number(CineItem *item, CineEval *eval, const char *channel, double fallback) noexcept {
    const int index = CineItemLookupChannel(item, channel);
    if (index < 0) return fallback;
    const auto at = static_cast<unsigned>(index);
    return eval != nullptr ? CineEvalChannel(eval, item, at)
                           : CineActionValueFloat(setup_action(item), item, at);
}

const char *read_text(CineItem *item, CineAction *action, const char *channel) noexcept {
    const int index = CineItemLookupChannel(item, channel);
    if (index < 0) return "";
    const void *text = CineActionValueCust(action, item, static_cast<unsigned>(index));
    return text != nullptr ? static_cast<const char *>(text) : "";
}

LinkGraph *shade_graph(const CineItem *item) noexcept {
    Cinema *scene = item != nullptr ? CineItemContext(item) : nullptr;
    return scene != nullptr ? CinemaGraphLookup(scene, kShadeGraph) : nullptr;
}

}  // namespace vx::shade

using namespace vx::shade;

extern "C" {

VX_API int ShadeStartup(void) {
    return vx::guard(0, [] {
        start_module();
        return 1;
    });
}

VX_API void ShadeShutdown(void) {
    stop_module();
}

VX_API uint32_t TextureLayerDefine(const char *name, const TextureLayerOps *ops, void *client) {
    return TextureLayerDefine2(name, ops, client, 0);
}

VX_API uint32_t TextureLayerDefine2(const char *name, const TextureLayerOps *ops, void *client,
                                    uint32_t superType) {
    return vx::guard(CINE_TYPE_NONE, [&] {
        if (!started()) vx::fail(vx::rc::refused, "the shading module is not started");
        return register_type(name, ops, client, superType);
    });
}

VX_API unsigned int TextureLayerDefCount(void) {
    return static_cast<unsigned>(module().types.size());
}

VX_API uint32_t TextureLayerDefByIndex(unsigned int index) {
    const auto &types = module().types;
    return index < types.size() ? types[index].code : CINE_TYPE_NONE;
}

}  // extern "C"
