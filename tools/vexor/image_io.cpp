#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>

#include <ImathBox.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <png.h>

namespace image_io {

namespace {

bool size_in_bounds(long long width, long long height) {
    return width > 0 && height > 0 && width <= std::numeric_limits<int>::max() &&
           height <= std::numeric_limits<int>::max() &&
           static_cast<unsigned long long>(width) * static_cast<unsigned long long>(height) <=
               kMaxImagePixels;
}

std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool fail(std::string &error, const std::string &reason, Image *image = nullptr) {
    error = reason;
    if (image != nullptr) *image = Image{};
    return false;
}

// The simplified libpng format for a number of channels, and back.
png_uint_32 png_format_for(int channels) {
    switch (channels) {
        case 1:
            return PNG_FORMAT_GRAY;
        case 2:
            return PNG_FORMAT_GA;
        case 3:
            return PNG_FORMAT_RGB;
        default:
            return PNG_FORMAT_RGBA;
    }
}

int channels_for(png_uint_32 format) {
    const int colour = (format & PNG_FORMAT_FLAG_COLOR) != 0 ? 3 : 1;
    return colour + ((format & PNG_FORMAT_FLAG_ALPHA) != 0 ? 1 : 0);
}

std::uint8_t to_byte(float value) {
    if (!(value > 0.0f)) return 0;  // also NaN
    if (value >= 1.0f) return 255;
    return static_cast<std::uint8_t>(std::lround(value * 255.0f));
}

// EXR channel names for a number of image channels.
const char *const *exr_names(int channels) {
    static const char *const grey[] = {"Y"};
    static const char *const grey_alpha[] = {"Y", "A"};
    static const char *const rgb[] = {"R", "G", "B"};
    static const char *const rgba[] = {"R", "G", "B", "A"};
    static const char *const *const table[] = {grey, grey_alpha, rgb, rgba};
    return table[channels - 1];
}

}  // namespace

bool Image::resize(int new_width, int new_height, int new_channels, float value) {
    if (!size_in_bounds(new_width, new_height) || new_channels < 1 || new_channels > 4) {
        *this = Image{};
        return false;
    }
    width = new_width;
    height = new_height;
    channels = new_channels;
    samples.assign(static_cast<std::size_t>(new_width) * static_cast<std::size_t>(new_height) *
                       static_cast<std::size_t>(new_channels),
                   value);
    return true;
}

Format format_for_path(const std::string &path) {
    const std::string name = lower(path);
    const auto ends_with = [&](const char *suffix) {
        const std::size_t n = std::strlen(suffix);
        return name.size() > n && name.compare(name.size() - n, n, suffix) == 0;
    };
    if (ends_with(".png")) return Format::png;
    if (ends_with(".exr")) return Format::exr;
    return Format::unknown;
}

Format format_of_file(const std::string &path) {
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return Format::unknown;
    unsigned char head[8] = {};
    const std::size_t got = std::fread(head, 1, sizeof head, file);
    std::fclose(file);
    static const unsigned char png_signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    static const unsigned char exr_magic[4] = {0x76, 0x2F, 0x31, 0x01};
    if (got == 8 && std::memcmp(head, png_signature, 8) == 0) return Format::png;
    if (got >= 4 && std::memcmp(head, exr_magic, 4) == 0) return Format::exr;
    return Format::unknown;
}

const char *format_name(Format format) {
    switch (format) {
        case Format::png:
            return "PNG";
        case Format::exr:
            return "EXR";
        case Format::unknown:
            break;
    }
    return "unknown";
}

bool read_png(const std::string &path, Image &image, std::string &error) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&png, path.c_str()) == 0) {
        return fail(error, path + ": not a readable PNG (" + png.message + ")", &image);
    }
    png.format = png_format_for(channels_for(png.format));
    Image read;
    if (!read.resize(static_cast<int>(std::min<png_uint_32>(png.width, 0x7FFFFFFF)),
                     static_cast<int>(std::min<png_uint_32>(png.height, 0x7FFFFFFF)),
                     channels_for(png.format))) {
        png_image_free(&png);
        return fail(error, path + ": the picture is too large", &image);
    }
    std::vector<std::uint8_t> bytes(read.samples.size());
    const auto row_stride = static_cast<png_int_32>(read.width * read.channels);
    if (png_image_finish_read(&png, nullptr, bytes.data(), row_stride, nullptr) == 0) {
        const std::string reason = png.message;
        png_image_free(&png);
        return fail(error, path + ": damaged PNG (" + reason + ")", &image);
    }
    std::transform(bytes.begin(), bytes.end(), read.samples.begin(),
                   [](std::uint8_t b) { return static_cast<float>(b) / 255.0f; });
    image = std::move(read);
    return true;
}

bool write_png(const std::string &path, const Image &image, std::string &error) {
    if (!size_in_bounds(image.width, image.height) || image.channels < 1 || image.channels > 4 ||
        image.samples.size() != static_cast<std::size_t>(image.width) *
                                    static_cast<std::size_t>(image.height) *
                                    static_cast<std::size_t>(image.channels)) {
        return fail(error, path + ": no picture to write");
    }
    std::vector<std::uint8_t> bytes(image.samples.size());
    std::transform(image.samples.begin(), image.samples.end(), bytes.begin(), to_byte);
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = png_format_for(image.channels);
    const auto row_stride = static_cast<png_int_32>(image.width * image.channels);
    if (png_image_write_to_file(&png, path.c_str(), 0, bytes.data(), row_stride, nullptr) == 0) {
        const std::string reason = png.message;
        png_image_free(&png);
        std::remove(path.c_str());
        return fail(error, path + ": could not write the PNG (" + reason + ")");
    }
    return true;
}

bool read_exr(const std::string &path, Image &image, std::string &error) {
    try {
        Imf::InputFile file(path.c_str());
        const Imath::Box2i window = file.header().dataWindow();
        const long long width = static_cast<long long>(window.max.x) - window.min.x + 1;
        const long long height = static_cast<long long>(window.max.y) - window.min.y + 1;
        if (!size_in_bounds(width, height)) {
            return fail(error, path + ": the picture is empty or too large", &image);
        }
        const Imf::ChannelList &list = file.header().channels();
        const bool has_colour = list.findChannel("R") != nullptr ||
                                list.findChannel("G") != nullptr ||
                                list.findChannel("B") != nullptr;
        if (!has_colour && list.findChannel("Y") == nullptr) {
            return fail(error, path + ": the EXR has no R, G, B or Y channel", &image);
        }
        const int colour = has_colour ? 3 : 1;
        Image read;
        read.resize(static_cast<int>(width), static_cast<int>(height),
                    colour + (list.findChannel("A") != nullptr ? 1 : 0));
        const char *const *names = exr_names(read.channels);
        const std::size_t x_stride = sizeof(float) * static_cast<std::size_t>(read.channels);
        Imf::FrameBuffer frame;
        for (int c = 0; c < read.channels; ++c) {
            frame.insert(names[c],
                         Imf::Slice::Make(Imf::FLOAT, read.samples.data() + c, window, x_stride,
                                          x_stride * static_cast<std::size_t>(read.width), 1, 1,
                                          names[c][0] == 'A' ? 1.0 : 0.0));
        }
        file.setFrameBuffer(frame);
        file.readPixels(window.min.y, window.max.y);
        image = std::move(read);
        return true;
    } catch (const std::exception &e) {
        return fail(error, path + ": not a readable EXR (" + e.what() + ")", &image);
    }
}

bool write_exr(const std::string &path, const Image &image, std::string &error) {
    if (!size_in_bounds(image.width, image.height) || image.channels < 1 || image.channels > 4 ||
        image.samples.size() != static_cast<std::size_t>(image.width) *
                                    static_cast<std::size_t>(image.height) *
                                    static_cast<std::size_t>(image.channels)) {
        return fail(error, path + ": no picture to write");
    }
    try {
        Imf::Header header(image.width, image.height);
        header.compression() = Imf::ZIP_COMPRESSION;
        const char *const *names = exr_names(image.channels);
        const std::size_t x_stride = sizeof(float) * static_cast<std::size_t>(image.channels);
        Imf::FrameBuffer frame;
        for (int c = 0; c < image.channels; ++c) {
            header.channels().insert(names[c], Imf::Channel(Imf::FLOAT));
            // OpenEXR's slices take a mutable pointer even for writing; nothing is written.
            frame.insert(
                names[c],
                Imf::Slice(Imf::FLOAT,
                           reinterpret_cast<char *>(const_cast<float *>(image.samples.data() + c)),
                           x_stride, x_stride * static_cast<std::size_t>(image.width)));
        }
        Imf::OutputFile file(path.c_str(), header);
        file.setFrameBuffer(frame);
        file.writePixels(image.height);
        return true;
    } catch (const std::exception &e) {
        std::remove(path.c_str());
        return fail(error, path + ": could not write the EXR (" + e.what() + ")");
    }
}

bool read_image(const std::string &path, Image &image, std::string &error) {
    switch (format_of_file(path)) {
        case Format::png:
            return read_png(path, image, error);
        case Format::exr:
            return read_exr(path, image, error);
        case Format::unknown:
            break;
    }
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return fail(error, path + ": cannot open the file", &image);
    std::fclose(file);
    return fail(error, path + ": neither a PNG nor an EXR picture", &image);
}

bool write_image(const std::string &path, const Image &image, std::string &error) {
    switch (format_for_path(path)) {
        case Format::png:
            return write_png(path, image, error);
        case Format::exr:
            return write_exr(path, image, error);
        case Format::unknown:
            break;
    }
    return fail(error, path + ": the name must end in .png or .exr");
}

}  // namespace image_io
