// picture.h - a canvas of 8-bit RGB pixels, text on it, and a PNG file of it.
#ifndef VQNS_PICTURE_H
#define VQNS_PICTURE_H

#include <cstdint>
#include <string>
#include <vector>

namespace vqns_tool {

struct Colour {
    uint8_t red, green, blue;
};

struct Picture {
    int width, height;
    std::vector<Colour> pixels;  // row by row

    Picture(int w, int h, Colour background)
        : width(w), height(h), pixels(static_cast<size_t>(w) * static_cast<size_t>(h), background) {}
};

// What lies outside the canvas is left out.
void set_pixel(Picture& picture, int x, int y, Colour colour);
void fill(Picture& picture, int x, int y, int width, int height, Colour colour);

// Text of `scale` pixels a dot; x is the left, middle or right of it, y the top.
enum class Align { kLeft, kMiddle, kRight };
enum { kGlyphWidth = 5, kGlyphHeight = 7, kGlyphStep = 6 };
void draw_text(Picture& picture, int x, int y, const std::string& text, int scale, Colour colour,
               Align align);

// 7 rows of 5 dots, the leftmost dot in bit 4. A blank for characters that have no glyph.
const uint8_t* glyph(char c);

// A PNG file with a palette: of a picture of 256 colours at most.
std::string png_of(const Picture& picture);

}  // namespace vqns_tool

#endif
