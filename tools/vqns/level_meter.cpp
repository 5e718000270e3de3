#include "level_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "stream_timing.h"
#include "text.h"

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

}  // namespace

void meter_hop(LevelMeter& meter, const vqns_stream::Hop& hop) {
    constexpr double kDuration = static_cast<double>(kHopSize) / kEngineRate;
    if (hop.time < 0 || hop.time + kDuration > meter.end) return;
    LevelMeter::Sum& sum = hop.speech ? meter.speech : meter.pauses;
    sum.before += energy(hop.before);
    sum.after += energy(hop.after);
    ++sum.hops;

    const auto channel = static_cast<size_t>(hop.channel);
    if (meter.hops_of.size() <= channel) meter.hops_of.resize(channel + 1);
    const size_t number = meter.hops_of[channel]++;
    if (meter.anybody_speaks.size() <= number) meter.anybody_speaks.resize(number + 1);
    if (hop.speech) meter.anybody_speaks[number] = true;
}

double speech_share(const LevelMeter& meter) {
    const auto hops = static_cast<double>(std::max<size_t>(meter.anybody_speaks.size(), 1));
    const auto spoken = std::count(meter.anybody_speaks.begin(), meter.anybody_speaks.end(), true);
    return static_cast<double>(spoken) / hops;
}

double level_before(const LevelMeter::Sum& sum) {
    return level(sum.before, sum.hops);
}

double level_after(const LevelMeter::Sum& sum) {
    return level(sum.after, sum.hops);
}

std::string dbfs(double level) {
    return std::isinf(level) ? "digital silence" : print("%.1f dBFS", level);
}

std::string describe_change(const LevelMeter::Sum& sum) {
    const double before = level_before(sum), after = level_after(sum);
    if (std::isinf(before) || std::isinf(after)) return "";
    return print("%.1f dB %s", std::abs(after - before), after < before ? "quieter" : "louder");
}

std::string describe(const LevelMeter::Sum& sum) {
    if (sum.hops == 0) return "none found";
    const std::string change = describe_change(sum);
    return dbfs(level_before(sum)) + " before, " + dbfs(level_after(sum)) + " after" +
           (change.empty() ? "" : " (" + change + ")");
}

}  // namespace vqns_tool
