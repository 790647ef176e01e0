// Frame buffers: component objects of the class "frameBuffer" that hold a render's settings
// while it runs, rows of pixels made on request, and what the render left behind.
#include <vexor/frame_buffer.h>
#include <vexor/sys/render_job.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/component.h"
#include "foundation/guard.h"
#include "foundation/registry.h"
#include "render/render_module.h"

namespace vx::render {

namespace {

constexpr const char *kClassName = "frameBuffer";
constexpr unsigned kMaxSide = 65536;
constexpr unsigned kMaxOutputs = 1024;

struct FrameBuffer {
    std::mutex lock;  // guards the rows
    bool rendering = false;
    bool begun = false;
    bool ended = false;
    XFrameBufferSettings settings{};
    XFrameBufferState state{};
    std::vector<std::string> idents;
    std::vector<const char *> ident_texts;
    // Rows by (output + 1) * height + line; output -1 is the image itself.
    std::unordered_map<std::uint64_t, std::unique_ptr<float[]>> rows;
};

// The instance data of the component object.
struct Object {
    FrameBuffer *fb;
};

void destroy(void *object) {
    delete static_cast<Object *>(object)->fb;
}

const XObjectMethods kMethods = XOBJECT_METHODS_INIT;

com::Class &frame_buffer_class() {
    com::Class &cls = com::define_class(kClassName, sizeof(Object), destroy);
    com::add_interface(cls, RENDER_FRAME_BUFFER_GUID, &kMethods);
    return cls;
}

void *make(void *) {
    return create_frame_buffer();
}

// The frame buffer behind a handle, or null for null and for other objects.
FrameBuffer *frame_buffer_of(void *object) noexcept {
    if (object == nullptr) return nullptr;
    const com::Class *cls = com::class_of(object);
    if (cls == nullptr || std::strcmp(com::name_of(*cls), kClassName) != 0) return nullptr;
    return static_cast<Object *>(object)->fb;
}

float *row(void *object, long long output, unsigned line) {
    FrameBuffer *fb = frame_buffer_of(object);
    if (fb == nullptr || !fb->rendering || line >= fb->settings.height ||
        output >= static_cast<long long>(fb->settings.outputCount)) {
        return nullptr;
    }
    const std::uint64_t key = static_cast<std::uint64_t>(output + 1) * fb->settings.height + line;
    std::lock_guard guard(fb->lock);
    std::unique_ptr<float[]> &slot = fb->rows[key];
    if (!slot) slot = std::make_unique<float[]>(std::size_t{fb->settings.width} * 4);
    return slot.get();
}

}  // namespace

void define_frame_buffers() {
    frame_buffer_class();
    host::add_built_in(kClassName, kClassName, make, nullptr);
}

void *create_frame_buffer() {
    if (!module_started()) fail(rc::refused, "the render job module is not started");
    com::Ref object(com::allocate(frame_buffer_class()));
    static_cast<Object *>(object.get())->fb = new FrameBuffer;
    return object.take();
}

}  // namespace vx::render

using vx::render::frame_buffer_of;
using vx::render::FrameBuffer;

extern "C" {

VX_API unsigned int XFrameBufferCreate(void **out) {
    if (out == nullptr) return vx::rc::bad_argument;
    *out = nullptr;
    return vx::latch([&] { *out = vx::render::create_frame_buffer(); });
}

VX_API unsigned int XFrameBufferRenderBegin(void *object, const XFrameBufferSettings *settings) {
    FrameBuffer *fb = frame_buffer_of(object);
    if (fb == nullptr || settings == nullptr || settings->width < 1 ||
        settings->width > vx::render::kMaxSide || settings->height < 1 ||
        settings->height > vx::render::kMaxSide ||
        settings->outputCount > vx::render::kMaxOutputs) {
        return vx::rc::bad_argument;
    }
    if (fb->rendering) return vx::rc::refused;
    fb->settings = *settings;
    fb->begun = true;
    fb->rendering = true;
    return vx::rc::ok;
}

VX_API unsigned int XFrameBufferRenderEnd(void *object, const XFrameBufferState *state) {
    FrameBuffer *fb = frame_buffer_of(object);
    if (fb == nullptr || state == nullptr ||
        (state->outputCount > 0 && state->outputIdents == nullptr)) {
        return vx::rc::bad_argument;
    }
    if (!fb->rendering) return vx::rc::refused;
    return vx::latch([&] {
        // Everything that can fail comes first; then the frame buffer changes at once.
        std::vector<std::string> idents;
        idents.reserve(state->outputCount);
        for (unsigned i = 0; i < state->outputCount; ++i) {
            const char *text = state->outputIdents[i] != nullptr ? state->outputIdents[i] : "";
            idents.emplace_back(text, strnlen(text, XFRAMEBUFFER_IDENT_MAX));
        }
        std::vector<const char *> texts(idents.size());
        std::lock_guard guard(fb->lock);
        fb->idents = std::move(idents);
        std::transform(fb->idents.begin(), fb->idents.end(), texts.begin(),
                       [](const std::string &s) { return s.c_str(); });
        fb->ident_texts = std::move(texts);
        fb->state = *state;
        fb->state.outputIdents = fb->ident_texts.data();
        fb->rows.clear();
        fb->rendering = false;
        fb->ended = true;
    });
}

VX_API int XFrameBufferIsRendering(void *object) {
    const FrameBuffer *fb = frame_buffer_of(object);
    return fb != nullptr && fb->rendering ? 1 : 0;
}

VX_API const XFrameBufferSettings *XFrameBufferRenderSettings(void *object) {
    const FrameBuffer *fb = frame_buffer_of(object);
    return fb != nullptr && fb->begun ? &fb->settings : nullptr;
}

VX_API const XFrameBufferState *XFrameBufferRenderState(void *object) {
    const FrameBuffer *fb = frame_buffer_of(object);
    return fb != nullptr && fb->ended ? &fb->state : nullptr;
}

VX_API const char *XFrameBufferOutputIdent(void *object, unsigned int index) {
    const FrameBuffer *fb = frame_buffer_of(object);
    if (fb == nullptr || index >= fb->ident_texts.size()) return nullptr;
    return fb->ident_texts[index];
}

VX_API float *XFrameBufferLine(void *object, unsigned int line) {
    return vx::guard(static_cast<float *>(nullptr),
                     [&] { return vx::render::row(object, -1, line); });
}

VX_API float *XFrameBufferOutputLine(void *object, unsigned int output, unsigned int line) {
    return vx::guard(static_cast<float *>(nullptr),
                     [&] { return vx::render::row(object, output, line); });
}

}  // extern "C"
