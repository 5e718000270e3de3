#include "level_meter.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "stream_timing.h"

namespace vqns_tool {
namespace {

using vqns_stream::kEngineRate;
using vqns_stream::kHopSize;

double energy(const int16_t* samples) {
    double sum = 0;
    for (int i = 0; i < kHopSize; ++i) sum += static_cast<double>(samples[i]) * samples[i];
    return sum;
}

double level(double sum, int64_t hops) {
    if (hops < 1 || sum <= 0) return -std::numeric_limits<double>::infinity();
    return 10 * std::log10(sum / static_cast<double>(hops * kHopSize) / (32768.0 * 32768.0));
}

std::string dbfs(double value) {
    if (std::isinf(value)) return "digital silence";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dBFS", value);
    return text;
}

}  // namespace

void meter_hop(LevelMeter& meter, const vqns_stream::Hop& hop) {
    constexpr double kDuration = static_cast<double>(kHopSize) / kEngineRate;
    if (hop.time < 0 || hop.time + kDuration > meter.end) return;
    LevelMeter::Sum& sum = hop.speech ? meter.speech : meter.pauses;
    sum.before += energy(hop.before);
    sum.after += energy(hop.after);
    ++sum.hops;
}

double level_before(const LevelMeter::Sum& sum) {
    return level(sum.before, sum.hops);
}

double level_after(const LevelMeter::Sum& sum) {
    return level(sum.after, sum.hops);
}

std::string describe(const LevelMeter::Sum& sum) {
    if (sum.hops == 0) return "none found";
    const double before = level_before(sum), after = level_after(sum);
    std::string text = dbfs(before) + " before, " + dbfs(after) + " after";
    if (std::isinf(before) || std::isinf(after)) return text;
    char change[48];
    std::snprintf(change, sizeof change, " (%.1f dB %s)", std::abs(after - before),
                  after < before ? "quieter" : "louder");
    return text + change;
}

}  // namespace vqns_tool
