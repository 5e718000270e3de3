#include "rate_change.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>

namespace vqns_stream {
namespace {

int64_t ceil_divide(int64_t a, int64_t b) {
    return (a + b - 1) / b;
}

// Where a stage's prototype has its centre, in up-sampled positions. The prototypes are symmetric low-pass
// filters: the one largest coefficient is the centre tap, and its place is the stage's delay. Branch p holds
// every L-th tap from tap p on.
int64_t centre_tap(const rk_voip_dsp_src_stdata_t& stage) {
    const int16_t* last = stage.table + stage.up * stage.taps;
    const int64_t place = std::max_element(stage.table, last) - stage.table;
    return place % stage.taps * stage.up + place / stage.taps;
}

// The long filters that turn 3 for 1 have no flat pass band; everything else is better long.
bool uses_third(const FixedPointConverter& converter) {
    return std::any_of(converter.memory.instance.stage, converter.memory.instance.stage + RK_SRC_STAGES,
                       [](const rk_voip_dsp_src_stdata_t& s) { return s.up == 1 && s.down == 3; });
}

void prepare(FixedPointConverter& converter, int from, int to, unsigned low_complexity) {
    rk_voip_dsp_src_inst_t* handle = &converter.memory.instance;
    if (rk_voip_dsp_src_init(&handle, static_cast<uint32_t>(from), static_cast<uint32_t>(to),
                             RK_SRC_MONO_TO_MONO, low_complexity) != 0) {
        throw std::runtime_error("no converter from " + std::to_string(from) + " to " + std::to_string(to) +
                                 " Hz");
    }
}

void open_fixed_point(RateChange& change, RateChangeQuality quality) {
    change.fixed_point = std::make_unique<FixedPointConverter>();
    FixedPointConverter& converter = *change.fixed_point;
    prepare(converter, change.from, change.to, quality == RateChangeQuality::kMusic ? 0 : 1);
    if (quality == RateChangeQuality::kMusic && uses_third(converter)) {
        prepare(converter, change.from, change.to, 1);
    }
    double step = 1;  // of the stage's input, in samples of the converter's input
    for (const rk_voip_dsp_src_stdata_t& stage : converter.memory.instance.stage) {
        if (stage.up < 1) break;
        change.stages.push_back({stage.up, stage.down});
        change.delay += step * static_cast<double>(centre_tap(stage)) / stage.up;
        step = step * stage.down / stage.up;
    }
}

SRC_STATE* new_state(RateChangeQuality quality) {
    int error = 0;
    const int type = quality == RateChangeQuality::kMusic ? SRC_SINC_BEST_QUALITY : SRC_SINC_MEDIUM_QUALITY;
    SRC_STATE* state = src_new(type, 1, &error);
    if (state == nullptr) throw std::runtime_error(src_strerror(error));
    return state;
}

// Hands over what is waiting; returns the number of samples that came out, at most `most`.
int64_t pull(Interpolator& interpolator, int64_t most) {
    SRC_DATA data = {};
    data.data_in = interpolator.waiting.data();
    data.input_frames = static_cast<long>(interpolator.waiting.size());
    data.data_out = interpolator.due.data();
    data.output_frames = static_cast<long>(most);
    data.src_ratio = interpolator.ratio;
    if (src_process(interpolator.state.get(), &data) != 0) return 0;
    interpolator.waiting.erase(interpolator.waiting.begin(),
                               interpolator.waiting.begin() + data.input_frames_used);
    return data.output_frames_gen;
}

// How many samples must be in before the first one comes out.
int64_t look_ahead(Interpolator& scratch) {
    for (int64_t n = 1;; ++n) {
        scratch.waiting.assign(1, 0.0f);
        if (pull(scratch, 1) == 1) return n;
    }
}

void open_interpolator(RateChange& change, RateChangeQuality quality) {
    change.interpolator = std::make_unique<Interpolator>();
    Interpolator& interpolator = *change.interpolator;
    const int common = std::gcd(change.from, change.to);
    change.stages.push_back({change.to / common, change.from / common});
    interpolator.ratio = static_cast<double>(change.to) / change.from;
    interpolator.due.resize(static_cast<size_t>(change_rate_room(change)));
    interpolator.state.reset(new_state(quality));
    // One sample more, since the interpolator adds its steps up in floating point.
    const int64_t delay = look_ahead(interpolator) + 1;
    change.delay = static_cast<double>(delay);
    src_reset(interpolator.state.get());
    interpolator.waiting.reserve(static_cast<size_t>(2 * delay + 4 * kRateChangeBlock));
    interpolator.waiting.assign(static_cast<size_t>(delay), 0.0f);
}

int interpolate(RateChange& change, const int16_t* in, int count, int16_t* out) {
    Interpolator& interpolator = *change.interpolator;
    const size_t before = interpolator.waiting.size();
    interpolator.waiting.resize(before + static_cast<size_t>(count));
    src_short_to_float_array(in, interpolator.waiting.data() + before, count);
    interpolator.taken_in += count;
    int written = 0;
    int64_t due = outputs_after(change, interpolator.taken_in) - interpolator.put_out;
    while (due > 0) {
        const int64_t n = pull(interpolator, due);
        if (n < 1) break;
        src_float_to_short_array(interpolator.due.data(), out + written, static_cast<int>(n));
        written += static_cast<int>(n);
        due -= n;
    }
    // Never so; but the count is a promise that buffers are built on.
    std::fill_n(out + written, due, int16_t{0});
    written += static_cast<int>(due);
    interpolator.put_out += written;
    return written;
}

}  // namespace

bool is_library_rate(int rate) {
    return rate > 0 && std::find(std::begin(rk_voip_dsp_mxr_smpr), std::end(rk_voip_dsp_mxr_smpr),
                                 static_cast<uint32_t>(rate)) != std::end(rk_voip_dsp_mxr_smpr);
}

RateChange open_rate_change(int from, int to, RateChangeQuality quality) {
    RateChange change;
    change.from = from;
    change.to = to;
    if (from == to) return change;
    if (from < 1 || to < 1 || !src_is_valid_ratio(static_cast<double>(to) / from)) {
        throw std::runtime_error("cannot convert from " + std::to_string(from) + " to " + std::to_string(to) +
                                 " Hz");
    }
    if (is_library_rate(from) && is_library_rate(to)) {
        open_fixed_point(change, quality);
    } else {
        open_interpolator(change, quality);
    }
    return change;
}

int change_rate(RateChange& change, const int16_t* in, int count, int16_t* out) {
    if (change.interpolator) return interpolate(change, in, count, out);
    if (!change.fixed_point) {
        std::copy_n(in, count, out);
        return count;
    }
    int16_t block[kRateChangeBlock];
    std::copy_n(in, count, block);
    rk_voip_dsp_src_inst_t* handle = &change.fixed_point->memory.instance;
    return rk_voip_dsp_src_proc(&handle, block, out, count);
}

int change_rate_room(const RateChange& change) {
    if (change.fixed_point) return RK_VOIP_DSP_SRC_ROOM(kRateChangeBlock);
    return static_cast<int>(ceil_divide(int64_t{kRateChangeBlock} * change.to, change.from)) + 1;
}

int64_t outputs_after(const RateChange& change, int64_t n) {
    for (const RateChange::Ratio& stage : change.stages) n = ceil_divide(n * stage.up, stage.down);
    return n;
}

int64_t inputs_for(const RateChange& change, int64_t m) {
    for (size_t s = change.stages.size(); s-- > 0 && m > 0;) {
        m = (m - 1) * change.stages[s].down / change.stages[s].up + 1;
    }
    return m;
}

}  // namespace vqns_stream
