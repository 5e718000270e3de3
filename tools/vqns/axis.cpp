#include "axis.h"

#include <cmath>

#include "text.h"

namespace vqns_tool {
namespace {

constexpr double kMinute = 60, kHour = 3600;

double number_step(double span, double most) {
    const double rough = span / most;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough * (1 - 1e-9)) return factor * power;
    }
    return 10 * power;
}

double time_step(double duration) {
    constexpr double kMost = 10;
    if (duration <= kMinute) return number_step(duration, kMost);
    static constexpr double kSteps[] = {10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 43200};
    for (const double step : kSteps) {
        if (duration / step <= kMost) return step;
    }
    return 86400 * std::ceil(duration / 86400 / kMost);
}

std::string number(double value, double step) {
    const int places = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
    return print("%.*f", places, value + 0.0);  // no minus zero
}

std::string clock_time(double seconds, double duration, double step) {
    if (duration <= kMinute) return number(seconds, step);
    const auto whole = static_cast<long>(std::lround(seconds));
    return duration <= kHour ? print("%ld:%02ld", whole / 60, whole % 60)
                             : print("%ld:%02ld", whole / 3600, whole / 60 % 60);
}

template <typename Label>
std::vector<Tick> ticks(double span, double step, Label label) {
    std::vector<Tick> all;
    for (int i = 0; i * step <= span * (1 + 1e-9); ++i) all.push_back({i * step / span, label(i * step)});
    return all;
}

}  // namespace

std::vector<Tick> number_ticks(double span, double most) {
    const double step = number_step(span, most);
    return ticks(span, step, [&](double value) { return number(value, step); });
}

std::vector<Tick> time_ticks(double duration) {
    const double step = time_step(duration);
    return ticks(duration, step, [&](double seconds) { return clock_time(seconds, duration, step); });
}

const char* time_unit(double duration) {
    return duration <= kMinute ? "Time (s)" : duration <= kHour ? "Time (min:s)" : "Time (h:min)";
}

}  // namespace vqns_tool
