// Writing seed files for the corpus generators of the fuzz targets.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace vx::fuzz {

// Writes one seed into the corpus directory; false when it cannot be written whole.
inline bool write_corpus_file(const std::string &dir, const char *name,
                              const std::vector<unsigned char> &bytes) {
    const std::string path = dir + "/" + name;
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

}  // namespace vx::fuzz
