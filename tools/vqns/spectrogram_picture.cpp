#include "spectrogram_picture.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "axis.h"
#include "colour_map.h"
#include "text.h"

namespace vqns_tool {
namespace {

// Pixels.
enum {
    kLeft = 90,
    kPanelWidth = 1060,
    kPanelHeight = 350,
    kFirstTop = 50,
    kSecondTop = 460,
    kBarLeft = 1176,
    kBarWidth = 22,
    kTick = 6,
    kScale = 2,
    kTextHeight = kGlyphHeight * kScale
};
constexpr Colour kPaper = {255, 255, 255}, kInk = {40, 40, 48};

struct Panel {
    int left, top, width, height;
};

void draw_frame(Picture& picture, const Panel& p) {
    fill(picture, p.left - 1, p.top - 1, p.width + 2, 1, kInk);
    fill(picture, p.left - 1, p.top + p.height, p.width + 2, 1, kInk);
    fill(picture, p.left - 1, p.top - 1, 1, p.height + 2, kInk);
    fill(picture, p.left + p.width, p.top - 1, 1, p.height + 2, kInk);
}

void draw_frequency_axis(Picture& picture, const Panel& p, double top_frequency) {
    for (const Tick& tick : number_ticks(top_frequency / 1000, 8)) {
        const int y = p.top + static_cast<int>(std::lround((1 - tick.share) * (p.height - 1)));
        fill(picture, p.left - 1 - kTick, y, kTick, 1, kInk);
        draw_text(picture, p.left - kTick - 6, y - kTextHeight / 2, tick.label, kScale, kInk, Align::kRight);
    }
    draw_text(picture, p.left - kTick - 6, p.top - kTextHeight - 16, "kHz", kScale, kInk, Align::kRight);
}

void draw_time_axis(Picture& picture, const Panel& p, double duration, bool labelled) {
    for (const Tick& tick : time_ticks(duration)) {
        const int x = p.left + static_cast<int>(std::lround(tick.share * (p.width - 1)));
        fill(picture, x, p.top + p.height + 1, 1, kTick, kInk);
        if (!labelled) continue;
        draw_text(picture, x, p.top + p.height + kTick + 6, tick.label, kScale, kInk, Align::kMiddle);
    }
    if (!labelled) return;
    draw_text(picture, p.left + p.width / 2, p.top + p.height + kTick + kTextHeight + 16, time_unit(duration),
              kScale, kInk, Align::kMiddle);
}

void draw_colour_bar(Picture& picture, double brightest) {
    const Panel p = {kBarLeft, kFirstTop, kBarWidth, kSecondTop + kPanelHeight - kFirstTop};
    for (int y = 0; y < p.height; ++y) {
        fill(picture, p.left, p.top + y, p.width, 1, shade(1 - (y + 0.5) / p.height));
    }
    draw_frame(picture, p);
    for (int level = 0; level <= static_cast<int>(kColourRange); level += 10) {
        const int y = p.top + static_cast<int>(std::lround(level / kColourRange * (p.height - 1)));
        fill(picture, p.left + p.width + 1, y, kTick, 1, kInk);
        draw_text(picture, p.left + p.width + kTick + 6, y - kTextHeight / 2,
                  print("%.0f", brightest - level + 0.0), kScale, kInk, Align::kLeft);
    }
    draw_text(picture, p.left, p.top - kTextHeight - 16, "dBFS", kScale, kInk, Align::kLeft);
}

}  // namespace

void write_picture(ReplacedFile& file, Spectrogram& before, Spectrogram& after) {
    end_sound(before);
    end_sound(after);
    const double duration = static_cast<double>(std::max<int64_t>(before.samples, 1)) / before.rate;
    Picture picture(kPictureWidth, kPictureHeight, kPaper);
    struct {
        const Spectrogram& spectrogram;
        const char* title;
        Panel panel;
        std::vector<double> levels;
    } halves[] = {{before, "Before", {kLeft, kFirstTop, kPanelWidth, kPanelHeight}, {}},
                  {after, "After", {kLeft, kSecondTop, kPanelWidth, kPanelHeight}, {}}};
    std::vector<double> all;
    for (auto& half : halves) {
        half.levels = pixel_levels(half.spectrogram, half.panel.width, half.panel.height, duration);
        all.insert(all.end(), half.levels.begin(), half.levels.end());
    }
    const double brightest = brightest_level(std::move(all));
    for (const auto& half : halves) {
        const Panel& p = half.panel;
        draw_levels(picture, p.left, p.top, p.width, half.levels, brightest);
        draw_frame(picture, p);
        draw_frequency_axis(picture, p, before.rate / 2.0);
        draw_time_axis(picture, p, duration, &half == &halves[1]);
        draw_text(picture, p.left + p.width / 2, p.top - kTextHeight - 16, half.title, kScale, kInk,
                  Align::kMiddle);
    }
    draw_colour_bar(picture, brightest);
    write_bytes(file, png_of(picture));
}

}  // namespace vqns_tool
