#include "picture.h"

#include <png.h>

#include <algorithm>
#include <new>
#include <stdexcept>

namespace vqns_tool {
namespace {

struct Rows {
    std::vector<Colour> palette;
    std::vector<uint8_t> indices;  // a pixel each
};

uint32_t packed(Colour c) {
    return static_cast<uint32_t>(c.red << 16 | c.green << 8 | c.blue);
}

Rows rows_of(const Picture& picture) {
    Rows rows;
    std::vector<uint32_t> known(picture.pixels.size());
    std::transform(picture.pixels.begin(), picture.pixels.end(), known.begin(), packed);
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    if (known.size() > PNG_MAX_PALETTE_LENGTH) throw std::logic_error("a picture of too many colours");
    for (const uint32_t c : known) {
        rows.palette.push_back(
            {static_cast<uint8_t>(c >> 16), static_cast<uint8_t>(c >> 8), static_cast<uint8_t>(c)});
    }
    for (const Colour c : picture.pixels) {
        const auto place = std::lower_bound(known.begin(), known.end(), packed(c));
        rows.indices.push_back(static_cast<uint8_t>(place - known.begin()));
    }
    return rows;
}

void append_bytes(png_structp png, png_bytep data, size_t count) {
    bool appended = true;
    try {
        static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), count);
    } catch (const std::bad_alloc&) {
        appended = false;
    }
    if (!appended) png_error(png, "memory");
}

void flush_bytes(png_structp) {}

// libpng would print a line of its own.
[[noreturn]] void leave(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

// Leaves by a long jump; nothing on the way there has a destructor.
bool write_rows(png_structp png, png_infop info, const Picture& picture, const Rows& rows) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    const auto width = static_cast<png_uint_32>(picture.width);
    const auto height = static_cast<png_uint_32>(picture.height);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_PALETTE, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(rows.palette.data()),
                 static_cast<int>(rows.palette.size()));
    png_write_info(png, info);
    for (size_t y = 0; y < height; ++y) png_write_row(png, rows.indices.data() + y * width);
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

std::string png_of(const Picture& picture) {
    static_assert(sizeof(Colour) == 3 && sizeof(png_color) == 3);
    const Rows rows = rows_of(picture);
    std::string bytes;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, leave, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    bool written = false;
    if (info != nullptr) {
        png_set_write_fn(png, &bytes, append_bytes, flush_bytes);
        written = write_rows(png, info, picture, rows);
    }
    png_destroy_write_struct(&png, &info);
    if (!written) throw std::bad_alloc();
    return bytes;
}

}  // namespace vqns_tool
