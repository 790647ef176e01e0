// The item types of the demo scene, which every scene command of the program knows, so that
// the scene files the demo writes load with all their items.
#pragma once

inline constexpr const char *kDemoBall = "demoBall";

// Defines the types once per process; true when they are there.
bool define_demo_types();
