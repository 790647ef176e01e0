// Reading and writing pictures for the `vexor` program: 8-bit PNG through libpng and float EXR
// through OpenEXR. The library itself never reads or writes images; only the program does.
//
// An image in memory is always 32-bit float samples, whatever its file held: PNG samples are
// read as value / 255 and written back rounded to the nearest of 0..255 after clamping to
// [0, 1] (so a PNG read and written again is the same picture), EXR samples are kept as they
// are. Files and images are bounded: anything over kMaxImagePixels is refused, never allocated.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace image_io {

// The largest image (width x height) read or written: 64 megapixels, 1 GiB as float RGBA.
inline constexpr std::size_t kMaxImagePixels = std::size_t{1} << 26;

// Rows from the top, pixels from the left, channels interleaved: 1 grey, 2 grey and alpha,
// 3 RGB, 4 RGBA.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<float> samples;  // width * height * channels

    // Sizes the image and fills every sample with `value`; false (and the image left empty)
    // when the size is out of bounds or `channels` is not 1 to 4.
    bool resize(int new_width, int new_height, int new_channels, float value = 0.0f);

    float *pixel(int x, int y) {
        return samples.data() + (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                 static_cast<std::size_t>(x)) *
                                    static_cast<std::size_t>(channels);
    }
    const float *pixel(int x, int y) const { return const_cast<Image *>(this)->pixel(x, y); }
};

enum class Format { unknown, png, exr };

// The format a file name asks for, by its extension (".png", ".exr", any case).
Format format_for_path(const std::string &path);

// The format of a file by its first bytes; unknown when it cannot be read or is neither.
Format format_of_file(const std::string &path);

const char *format_name(Format format);  // "PNG", "EXR" or "unknown"

// Each returns true on success; on failure it returns false with a one-line reason in `error`
// and leaves `image` empty (readers) or no complete file behind (writers).

// A PNG of any colour type and bit depth, read as 8-bit samples: grey, grey and alpha, RGB or
// RGBA as the file holds (palettes become RGB or RGBA).
bool read_png(const std::string &path, Image &image, std::string &error);
// 8-bit PNG with the image's channels (1 to 4).
bool write_png(const std::string &path, const Image &image, std::string &error);

// An EXR's R, G, B and A channels (a missing one of R, G, B reads as 0), or its Y and A
// channels when it has no colour, as float samples of the data window.
bool read_exr(const std::string &path, Image &image, std::string &error);
// A scan-line EXR of 32-bit float channels (Y, YA, RGB or RGBA), ZIP compressed.
bool write_exr(const std::string &path, const Image &image, std::string &error);

// By the file's first bytes.
bool read_image(const std::string &path, Image &image, std::string &error);
// By the path's extension.
bool write_image(const std::string &path, const Image &image, std::string &error);

}  // namespace image_io
