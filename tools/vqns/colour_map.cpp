#include "colour_map.h"

#include <algorithm>
#include <cmath>

namespace vqns_tool {
namespace {

constexpr int kShades = 160;  // steps of half a decibel: a picture's colours fit into the palette of a PNG

double decibel(double power) {
    return 10 * std::log10(power + 1e-20);
}

}  // namespace

std::vector<double> pixel_levels(const Spectrogram& s, int width, int height, double duration) {
    std::vector<double> values;
    const double step = duration / width, band = s.rate / 2.0 / height;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double power = power_at(s, {(x + 0.5) * step, step, (height - y - 0.5) * band, band});
            values.push_back(decibel(power));
        }
    }
    return values;
}

// One pixel in five hundred may be brighter: rumble and clicks shall not darken speech.
double brightest_level(std::vector<double> pixels) {
    const auto place = pixels.end() - 1 - static_cast<ptrdiff_t>(pixels.size() / 500);
    std::nth_element(pixels.begin(), place, pixels.end());
    return 10 * std::ceil(std::clamp(*place, -100.0, 0.0) / 10);
}

Colour shade(double share) {
    static constexpr Colour kStops[] = {{4, 3, 15},     {38, 12, 84},    {92, 20, 110},
                                        {146, 38, 103}, {198, 62, 78},   {236, 104, 44},
                                        {251, 164, 38}, {248, 224, 110}, {252, 255, 210}};
    constexpr double kSteps = std::size(kStops) - 1;
    const double at = std::round(std::clamp(share, 0.0, 1.0) * kShades) / kShades * kSteps;
    const auto stop = std::min(static_cast<size_t>(at), std::size(kStops) - 2);
    const double part = at - static_cast<double>(stop);
    const auto blend = [&](uint8_t a, uint8_t b) {
        return static_cast<uint8_t>(std::lround(a + part * (b - a)));
    };
    const Colour &from = kStops[stop], &to = kStops[stop + 1];
    return {blend(from.red, to.red), blend(from.green, to.green), blend(from.blue, to.blue)};
}

void draw_levels(Picture& picture, int left, int top, int width, const std::vector<double>& pixels,
                 double brightest) {
    for (int i = 0; i < static_cast<int>(pixels.size()); ++i) {
        const double level = pixels[static_cast<size_t>(i)];
        set_pixel(picture, left + i % width, top + i / width, shade((level - brightest) / kColourRange + 1));
    }
}

}  // namespace vqns_tool
