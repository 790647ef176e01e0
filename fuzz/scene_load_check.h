// What must hold for any bytes loaded as a scene file. Shared by the fuzz target, the program
// that writes its seed corpus and the test that replays the corpus, so that all three load
// files in the same session: the same packages, defined the same way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <vexor/action.h>
#include <vexor/actionclip.h>
#include <vexor/block.h>
#include <vexor/cinema.h>
#include <vexor/group.h>
#include <vexor/package.h>
#include <vexor/scene.h>
#include <vexor/scene_io.h>

namespace vx::fuzz {

// Packages of the fuzz session: the type "fzItem" with a channel of every kind, its subtype
// "fzSub", and the add-on package "fzExtra". Call once after each CinemaStartup.
inline void define_scene_packages() {
    const char *const none = nullptr;
    CinePackageDefine("fzItem");
    CinePackageAddChannel("fzItem", CINE_CH_NAME, "x", VX_STORE_FLOAT, none, CINE_CH_DEFAULT, 1.5,
                          CINE_CH_NAME, "y", VX_STORE_FLOAT, none, CINE_CH_NAME, "count",
                          VX_STORE_INT, none, CINE_CH_NAME, "label", VX_STORE_TEXT, none,
                          CINE_CH_NAME, "m", VX_STORE_MATRIX, none, CINE_CH_NAME, "obj",
                          VX_STORE_OBJECT, "custom", CINE_CH_NAME, none);
    const std::uint32_t item = CineDefineType(0, 0, "fzItem");
    CinePackageDefine("fzSub");
    CineDefineType(0, static_cast<std::int32_t>(item), "fzSub");
    CinePackageDefine("fzExtra");
    CinePackageAddChannel("fzExtra", CINE_CH_NAME, "e0", VX_STORE_FLOAT, none, CINE_CH_NAME, none);
}

// The modules of the fuzz session: scenes with groups and action clips, and the packages above.
// Stopped in the reverse order, so that the scene module's last stop forgets the packages.
inline void start_session() {
    CinemaStartup();
    GroupStartup();
    ActionClipStartup();
    define_scene_packages();
}

inline void stop_session() {
    ActionClipShutdown();
    GroupShutdown();
    CinemaShutdown();
}

using Bytes = std::vector<unsigned char>;

// The scene saved into memory; empty when it could not be saved.
inline Bytes save_to_memory(Cinema *scene) {
    Bytes bytes;
    BlkWriter *writer = BlkWriterOpenMemory();
    if (writer == nullptr) return bytes;
    if (CinemaSaveAccess(scene, writer) == 1) {
        std::size_t size = 0;
        const auto *data = static_cast<const unsigned char *>(BlkWriterMemoryData(writer, &size));
        bytes.assign(data, data + size);
    }
    if (BlkWriterClose(writer) != 1) bytes.clear();
    return bytes;
}

inline Cinema *load_from_memory(const unsigned char *data, std::size_t size, unsigned options) {
    BlkReader *reader = BlkReaderOpenMemory(data, size);
    if (reader == nullptr) return nullptr;
    Cinema *scene = CinemaLoadAccess(reader, options);
    BlkReaderClose(reader);
    return scene;
}

// A scene loaded from any bytes saves to a file that loads again and saves to the same bytes:
// whatever a load accepts is a scene the library can hold. Null when every property holds
// for the bytes; otherwise what broke.
inline const char *check_scene_load(const unsigned char *data, std::size_t size) {
    const unsigned count = CinemaCount();
    const char *broken = nullptr;
    Cinema *scene = load_from_memory(data, size, 0);
    Cinema *strict = load_from_memory(data, size, CINEMA_LOAD_STRICT);
    if (strict != nullptr && scene == nullptr)
        broken = "a strict load accepted what a load refused";
    CinemaDestroy(strict);
    if (scene != nullptr && broken == nullptr) {
        if (CinemaHasChanged(scene) != 0) broken = "a loaded scene is marked changed";
        const Bytes first = save_to_memory(scene);
        Cinema *again = first.empty() ? nullptr : load_from_memory(first.data(), first.size(), 0);
        if (again == nullptr) {
            broken = "a loaded scene did not save and load again";
        } else if (save_to_memory(again) != first) {
            broken = "a loaded scene saves to other bytes once loaded again";
        }
        CinemaDestroy(again);
    }
    CinemaDestroy(scene);
    if (broken == nullptr && CinemaCount() != count) broken = "a load left a scene behind";
    return broken;
}

}  // namespace vx::fuzz
