// The irradiance cache file: "RIVK", version, a reserved word, the number of values, then the
// values as 32-bit little-endian words (see docs/formats.md).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/guard.h"
#include "render/irr_cache.h"

namespace vx::irr {

namespace {

constexpr std::uint32_t kMagic = 0x4B564952;  // "RIVK"
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kHeaderWords = 4;
// Words of a value: position, normal, irradiance, second irradiance (version 1 only), both
// gradients, radius and kind.
constexpr std::size_t words_per_value(std::uint32_t version) {
    return version == 0 ? 17 : 20;
}

void put(std::vector<unsigned char> &bytes, std::uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<unsigned char>(word >> shift));
}

void put(std::vector<unsigned char> &bytes, const float *f, int n) {
    for (int i = 0; i < n; ++i) {
        std::uint32_t word;
        std::memcpy(&word, &f[i], sizeof word);
        put(bytes, word);
    }
}

class Reader {
  public:
    Reader(const unsigned char *data, std::size_t size) : data_(data), size_(size) {}
    // A word past the end reads as 0 (callers check the size first; this keeps a slip safe).
    std::uint32_t word() {
        std::uint32_t w = 0;
        if (at_ + 4 > size_) return 0;
        for (int i = 0; i < 4; ++i)
            w |= std::uint32_t{data_[at_ + static_cast<std::size_t>(i)]} << (8 * i);
        at_ += 4;
        return w;
    }
    void floats(float *f, int n) {
        for (int i = 0; i < n; ++i) {
            const std::uint32_t w = word();
            std::memcpy(&f[i], &w, sizeof w);
        }
    }

  private:
    const unsigned char *data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

// The values of a file's bytes, checked; false when the bytes are not a cache file.
bool parse(const unsigned char *data, std::size_t size, std::vector<Value> &values) {
    if (data == nullptr || size < kHeaderWords * 4) return false;
    Reader r(data, size);
    const std::uint32_t magic = r.word(), version = r.word();
    r.word();  // reserved
    const std::uint32_t count = r.word();
    if (magic != kMagic || version > 1) return false;
    // Exactly the values the count promises: the count is checked against the bytes before
    // anything is allocated for it.
    const std::uint64_t needed =
        (kHeaderWords + std::uint64_t{count} * words_per_value(version)) * 4;
    if (needed != size) return false;
    values.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        Value v{};
        r.floats(v.position, 3);
        r.floats(v.normal, 3);
        r.floats(v.irradiance, 3);
        if (version == 0) {
            std::memcpy(v.irradiance2, v.irradiance, sizeof v.irradiance);
        } else {
            r.floats(v.irradiance2, 3);
        }
        r.floats(v.gradient, 3);
        r.floats(v.gradient2, 3);
        r.floats(&v.radius, 1);
        const std::uint32_t kind = r.word();
        if (kind > 1) return false;
        v.kind = static_cast<int>(kind);
        v.pass = 0;
        if (!storable(v)) return false;
        values.push_back(v);
    }
    return true;
}

bool read_file(const char *path, std::vector<unsigned char> &bytes) {
    std::FILE *file = std::fopen(path, "rb");
    if (file == nullptr) return false;
    bool ok = std::fseek(file, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(file) : -1;
    ok = ok && size >= 0 && std::fseek(file, 0, SEEK_SET) == 0;
    if (ok) {
        bytes.resize(static_cast<std::size_t>(size));
        ok = std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size();
    }
    std::fclose(file);
    return ok;
}

}  // namespace

std::vector<unsigned char> save_bytes(const IrrCache &cache) {
    std::vector<unsigned char> bytes;
    bytes.reserve((kHeaderWords + std::size_t{cache.values} * 20) * 4);
    put(bytes, kMagic);
    put(bytes, kVersion);
    put(bytes, 0);
    put(bytes, cache.values);
    for_each_value(cache, [&](const Value &v) {
        put(bytes, v.position, 3);
        put(bytes, v.normal, 3);
        put(bytes, v.irradiance, 3);
        put(bytes, v.irradiance2, 3);
        put(bytes, v.gradient, 3);
        put(bytes, v.gradient2, 3);
        put(bytes, &v.radius, 1);
        put(bytes, static_cast<std::uint32_t>(v.kind));
    });
    return bytes;
}

bool load_bytes(IrrCache &cache, const unsigned char *data, std::size_t size) {
    std::vector<Value> values;
    if (!parse(data, size, values)) return false;
    store_all(cache, values);
    return true;
}

bool load_file(IrrCache &cache, const char *path) {
    std::vector<unsigned char> bytes;
    return read_file(path, bytes) && load_bytes(cache, bytes.data(), bytes.size());
}

}  // namespace vx::irr

extern "C" {

VX_API int IrrCacheSave(const IrrCache *cache, const char *path) {
    if (cache == nullptr || path == nullptr) return 0;
    return vx::guard(0, [&] {
        const std::vector<unsigned char> bytes = vx::irr::save_bytes(*cache);
        // A temporary file beside the target, renamed over it once complete.
        const std::string temporary = std::string(path) + ".saving";
        std::FILE *file = std::fopen(temporary.c_str(), "wb");
        if (file == nullptr) return 0;
        const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        if (std::fclose(file) != 0 || !written || std::rename(temporary.c_str(), path) != 0) {
            std::remove(temporary.c_str());
            return 0;
        }
        return 1;
    });
}

VX_API int IrrCacheLoad(IrrCache *cache, const char *path) {
    if (cache == nullptr || path == nullptr) return 0;
    return vx::guard(0, [&] { return vx::irr::load_file(*cache, path) ? 1 : 0; });
}

VX_API int IrrCacheLoadMemory(IrrCache *cache, const void *data, size_t size) {
    if (cache == nullptr) return 0;
    return vx::guard(0, [&] {
        return vx::irr::load_bytes(*cache, static_cast<const unsigned char *>(data), size) ? 1 : 0;
    });
}

}  // extern "C"
