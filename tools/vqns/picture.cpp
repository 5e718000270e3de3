#include "picture.h"

#include <png.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "failure.h"

namespace vqns_tool {
namespace {

struct Writer {
    std::FILE* file;
    int error = 0;
};

void write_bytes(png_structp png, png_bytep data, size_t count) {
    auto* writer = static_cast<Writer*>(png_get_io_ptr(png));
    errno = 0;
    if (std::fwrite(data, 1, count, writer->file) == count) return;
    writer->error = errno;
    png_error(png, "write");
}

void flush_bytes(png_structp) {}

// libpng would print a line of its own.
[[noreturn]] void leave(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

// Leaves by a long jump; nothing on the way there has a destructor.
bool write_rows(png_structp png, png_infop info, const Picture& picture) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height),
                 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < picture.height; ++y) {
        const Colour* row = picture.pixels.data() + static_cast<ptrdiff_t>(y) * picture.width;
        png_write_row(png, reinterpret_cast<png_const_bytep>(row));
    }
    png_write_end(png, info);
    return true;
}

}  // namespace

void set_pixel(Picture& picture, int x, int y, Colour colour) {
    if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) return;
    picture.pixels[static_cast<size_t>(y) * static_cast<size_t>(picture.width) + static_cast<size_t>(x)] =
        colour;
}

void fill(Picture& picture, int x, int y, int width, int height, Colour colour) {
    for (int row = y; row < y + height; ++row) {
        for (int column = x; column < x + width; ++column) set_pixel(picture, column, row, colour);
    }
}

void draw_text(Picture& picture, int x, int y, const std::string& text, int scale, Colour colour,
               Align align) {
    const int width = static_cast<int>(text.size()) * kGlyphStep * scale - scale;
    if (align == Align::kMiddle) x -= width / 2;
    if (align == Align::kRight) x -= width;
    for (const char c : text) {
        const uint8_t* rows = glyph(c);
        for (int row = 0; row < kGlyphHeight; ++row) {
            for (int dot = 0; dot < kGlyphWidth; ++dot) {
                if ((rows[row] >> (kGlyphWidth - 1 - dot) & 1) == 0) continue;
                fill(picture, x + dot * scale, y + row * scale, scale, scale, colour);
            }
        }
        x += kGlyphStep * scale;
    }
}

void write_png(ReplacedFile& file, const Picture& picture) {
    static_assert(sizeof(Colour) == 3);
    Writer writer = {fdopen(release_descriptor(file), "wb")};
    if (writer.file == nullptr) fail(file.name, system_reason(errno));
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, leave, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    bool written = false;
    if (info != nullptr) {
        png_set_write_fn(png, &writer, write_bytes, flush_bytes);
        written = write_rows(png, info, picture);
    }
    png_destroy_write_struct(&png, &info);
    errno = 0;
    const bool closed = std::fclose(writer.file) == 0;
    if (!closed && writer.error == 0) writer.error = errno;
    if (!written || !closed) {
        fail(file.name, writer.error != 0 ? system_reason(writer.error) : "the picture cannot be written");
    }
}

}  // namespace vqns_tool
