#include "level_curve.h"

#include <algorithm>
#include <cmath>

#include "stream_timing.h"

namespace vqns_tool {
namespace {

using vqns_stream::kHopSeconds;

float power(const int16_t* samples) {
    double sum = 0;
    for (int i = 0; i < vqns_stream::kHopSize; ++i) sum += static_cast<double>(samples[i]) * samples[i];
    return static_cast<float>(sum / vqns_stream::kHopSize / (32768.0 * 32768.0));
}

}  // namespace

void add_hop(LevelCurve& curve, const vqns_stream::Hop& hop) {
    if (curve.before.empty()) curve.first = hop.time;
    const auto index = static_cast<size_t>(std::lround((hop.time - curve.first) / kHopSeconds));
    if (index >= curve.before.size()) {
        curve.before.resize(index + 1);
        curve.after.resize(index + 1);
    }
    curve.before[index] += power(hop.before);
    curve.after[index] += power(hop.after);
}

LevelPoints level_points(const LevelCurve& curve, int channels, double duration, int most, double lowest) {
    const auto hops = static_cast<int64_t>(curve.before.size());
    const auto begin = static_cast<int64_t>(std::ceil(std::max(-curve.first / kHopSeconds, 0.0) - 1e-6));
    const auto within = static_cast<int64_t>(std::floor((duration - curve.first) / kHopSeconds + 1e-6));
    const int64_t end = std::min(hops, within);
    const int64_t count = std::max<int64_t>((end - begin + most - 1) / most, 1);
    LevelPoints result = {static_cast<double>(count) * kHopSeconds, {}};
    for (int64_t at = begin; at < end; at += count) {
        const int64_t n = std::min(count, end - at);
        const auto level = [&](const std::vector<float>& powers) {
            double sum = 0;
            for (int64_t i = at; i < at + n; ++i) sum += powers[static_cast<size_t>(i)];
            return std::max(10 * std::log10(sum / static_cast<double>(n * channels) + 1e-20), lowest);
        };
        const double middle =
            curve.first + (static_cast<double>(at) + static_cast<double>(n) / 2) * kHopSeconds;
        result.points.push_back({middle, level(curve.before), level(curve.after)});
    }
    return result;
}

}  // namespace vqns_tool
