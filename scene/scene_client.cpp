#include "scene/scene_client.h"

namespace vx::cine {
namespace {
const SceneClient *installed = nullptr;
}  // namespace

void set_scene_client(const SceneClient *client) noexcept {
    installed = client;
}

const SceneClient *scene_client() noexcept {
    return installed;
}

}  // namespace vx::cine
