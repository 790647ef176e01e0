// A scene saved to bytes in memory, and bytes loaded back as a scene.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include <vexor/block.h>
#include <vexor/scene_io.h>

namespace vx::test {

using Bytes = std::vector<unsigned char>;

inline Bytes saved(Cinema *scene) {
    BlkWriter *writer = BlkWriterOpenMemory();
    EXPECT_EQ(CinemaSaveAccess(scene, writer), 1);
    std::size_t size = 0;
    const auto *data = static_cast<const unsigned char *>(BlkWriterMemoryData(writer, &size));
    Bytes bytes(data, data + size);
    EXPECT_EQ(BlkWriterClose(writer), 1);
    return bytes;
}

// Null when the bytes are refused.
inline Cinema *loaded(const Bytes &bytes, unsigned int options = 0) {
    BlkReader *reader = BlkReaderOpenMemory(bytes.data(), bytes.size());
    if (reader == nullptr) return nullptr;
    Cinema *scene = CinemaLoadAccess(reader, options);
    BlkReaderClose(reader);
    return scene;
}

}  // namespace vx::test
