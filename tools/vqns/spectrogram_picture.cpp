#include "spectrogram_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

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
constexpr double kRange = 80;  // dB from the darkest to the brightest

struct Panel {
    int left, top, width, height;
};

// From black through violet, red and orange to a pale yellow: ever lighter.
Colour shade(double share) {
    static constexpr Colour kStops[] = {{4, 3, 15},     {38, 12, 84},    {92, 20, 110},
                                        {146, 38, 103}, {198, 62, 78},   {236, 104, 44},
                                        {251, 164, 38}, {248, 224, 110}, {252, 255, 210}};
    constexpr double kSteps = std::size(kStops) - 1;
    const double at = std::clamp(share, 0.0, 1.0) * kSteps;
    const auto stop = std::min(static_cast<size_t>(at), std::size(kStops) - 2);
    const double part = at - static_cast<double>(stop);
    const auto blend = [&](uint8_t a, uint8_t b) {
        return static_cast<uint8_t>(std::lround(a + part * (b - a)));
    };
    const Colour &from = kStops[stop], &to = kStops[stop + 1];
    return {blend(from.red, to.red), blend(from.green, to.green), blend(from.blue, to.blue)};
}

double decibel(double power) {
    return 10 * std::log10(power + 1e-20);
}

// One value a pixel, rows from the top.
std::vector<double> levels(const Spectrogram& s, const Panel& panel, double duration) {
    std::vector<double> values;
    const double step = duration / panel.width, band = s.rate / 2.0 / panel.height;
    for (int y = 0; y < panel.height; ++y) {
        for (int x = 0; x < panel.width; ++x) {
            const double power = power_at(s, {(x + 0.5) * step, step, (panel.height - y - 0.5) * band, band});
            values.push_back(decibel(power));
        }
    }
    return values;
}

// A multiple of 10 dB. One pixel in five hundred may be brighter: rumble and clicks shall not darken speech.
double bright_level(std::vector<double>& all) {
    const auto place = all.end() - 1 - static_cast<ptrdiff_t>(all.size() / 500);
    std::nth_element(all.begin(), place, all.end());
    return 10 * std::ceil(std::clamp(*place, -100.0, 0.0) / 10);
}

// 1, 2 or 5 times a power of ten, so that about `most` steps or fewer make up the span.
double tick_step(double span, double most) {
    const double rough = span / most;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough * (1 - 1e-9)) return factor * power;
    }
    return 10 * power;
}

// The same in units of clocks.
double time_step(double duration) {
    constexpr double kMost = 10;
    if (duration <= 60) return tick_step(duration, kMost);
    static constexpr double kSteps[] = {10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 43200};
    for (const double step : kSteps) {
        if (duration / step <= kMost) return step;
    }
    return 86400 * std::ceil(duration / 86400 / kMost);
}

std::string number(double value, double step) {
    const int places = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", places, value + 0.0);  // no minus zero
    return text;
}

std::string clock_time(double seconds, double duration, double step) {
    if (duration <= 60) return number(seconds, step);
    const auto whole = static_cast<long>(std::lround(seconds));
    char text[32];
    if (duration <= 3600) {
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 3600, whole / 60 % 60);
    }
    return text;
}

void draw_frame(Picture& picture, const Panel& p) {
    fill(picture, p.left - 1, p.top - 1, p.width + 2, 1, kInk);
    fill(picture, p.left - 1, p.top + p.height, p.width + 2, 1, kInk);
    fill(picture, p.left - 1, p.top - 1, 1, p.height + 2, kInk);
    fill(picture, p.left + p.width, p.top - 1, 1, p.height + 2, kInk);
}

void draw_frequency_axis(Picture& picture, const Panel& p, double top_frequency) {
    const double span = top_frequency / 1000, step = tick_step(span, 8);
    for (int i = 0; i * step <= span * (1 + 1e-9); ++i) {
        const int y = p.top + static_cast<int>(std::lround((1 - i * step / span) * (p.height - 1)));
        fill(picture, p.left - 1 - kTick, y, kTick, 1, kInk);
        draw_text(picture, p.left - kTick - 6, y - kTextHeight / 2, number(i * step, step), kScale, kInk,
                  Align::kRight);
    }
    draw_text(picture, p.left - kTick - 6, p.top - kTextHeight - 16, "kHz", kScale, kInk, Align::kRight);
}

void draw_time_axis(Picture& picture, const Panel& p, double duration, bool labelled) {
    const double step = time_step(duration);
    for (int i = 0; i * step <= duration * (1 + 1e-9); ++i) {
        const int x = p.left + static_cast<int>(std::lround(i * step / duration * (p.width - 1)));
        fill(picture, x, p.top + p.height + 1, 1, kTick, kInk);
        if (!labelled) continue;
        draw_text(picture, x, p.top + p.height + kTick + 6, clock_time(i * step, duration, step), kScale,
                  kInk, Align::kMiddle);
    }
    if (!labelled) return;
    const char* unit = duration <= 60 ? "Time (s)" : duration <= 3600 ? "Time (min:s)" : "Time (h:min)";
    draw_text(picture, p.left + p.width / 2, p.top + p.height + kTick + kTextHeight + 16, unit, kScale, kInk,
              Align::kMiddle);
}

void draw_colour_bar(Picture& picture, double brightest) {
    const Panel p = {kBarLeft, kFirstTop, kBarWidth, kSecondTop + kPanelHeight - kFirstTop};
    for (int y = 0; y < p.height; ++y) {
        fill(picture, p.left, p.top + y, p.width, 1, shade(1 - (y + 0.5) / p.height));
    }
    draw_frame(picture, p);
    for (int level = 0; level <= static_cast<int>(kRange); level += 10) {
        const int y = p.top + static_cast<int>(std::lround(level / kRange * (p.height - 1)));
        fill(picture, p.left + p.width + 1, y, kTick, 1, kInk);
        draw_text(picture, p.left + p.width + kTick + 6, y - kTextHeight / 2, number(brightest - level, 1),
                  kScale, kInk, Align::kLeft);
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
        half.levels = levels(half.spectrogram, half.panel, duration);
        all.insert(all.end(), half.levels.begin(), half.levels.end());
    }
    const double brightest = bright_level(all);
    for (const auto& half : halves) {
        const Panel& p = half.panel;
        auto value = half.levels.begin();
        for (int y = 0; y < p.height; ++y) {
            for (int x = 0; x < p.width; ++x) {
                set_pixel(picture, p.left + x, p.top + y, shade((*value++ - brightest) / kRange + 1));
            }
        }
        draw_frame(picture, p);
        draw_frequency_axis(picture, p, before.rate / 2.0);
        draw_time_axis(picture, p, duration, &half == &halves[1]);
        draw_text(picture, p.left + p.width / 2, p.top - kTextHeight - 16, half.title, kScale, kInk,
                  Align::kMiddle);
    }
    draw_colour_bar(picture, brightest);
    write_png(file, picture);
}

}  // namespace vqns_tool
