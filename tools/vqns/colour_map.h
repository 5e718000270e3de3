// colour_map.h - the colours of spectrograms.
#ifndef VQNS_COLOUR_MAP_H
#define VQNS_COLOUR_MAP_H

#include <vector>

#include "picture.h"
#include "spectrogram.h"

namespace vqns_tool {

constexpr double kColourRange = 80;  // dB from the darkest to the brightest

// Levels in dB relative to a sine at full scale, a value a pixel, rows from the top.
std::vector<double> pixel_levels(const Spectrogram& s, int width, int height, double duration);

// The level of the brightest colour, common to all the pictures that these pixels belong to: a multiple of
// 10 dB.
double brightest_level(std::vector<double> pixels);

// From 0, black, to 1, a pale yellow: ever lighter.
Colour shade(double share);

// Draws width * height pixels with their upper left corner at (left, top).
void draw_levels(Picture& picture, int left, int top, int width, const std::vector<double>& pixels,
                 double brightest);

}  // namespace vqns_tool

#endif
