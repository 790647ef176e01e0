// The component objects of scenes, items and the per-item objects of defined packages.
#pragma once

#include <vexor/cinema.h>
#include <vexor/package.h>

namespace vx::cine {

// Defines the classes "scene", "item" and "pwrap.inst" (once per process).
void define_scene_classes();
// Each makes an object with one reference; raises std::bad_alloc.
void *make_scene_object(Cinema &scene);
void *make_item_object(CineItem &item);
void *make_instance_object(CineItem &item, CinePackage &pkg);

}  // namespace vx::cine
