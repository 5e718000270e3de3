// One stage of the converter: up by L, low pass, down by M.
#include <algorithm>

#include "rate_converter.h"
#include "rate_converter_filters.h"

namespace {

struct Filter {
    int16_t up;
    uint16_t down;
    const int16_t* table;  // null: only the short filters have this ratio
    const int16_t* table_low_complexity;
};

#define FILTER(up, down) \
    { up, down, rk_voip_dsp_ph_##up##_by_##down, rk_voip_dsp_ph_##up##_by_##down##_lcmplx }

// Going up, the cutoff and the taps depend on L alone, so that one table serves several M.
constexpr Filter kFilters[] = {
    FILTER(1, 2),
    FILTER(1, 3),
    FILTER(1, 4),
    {1, 6, nullptr, rk_voip_dsp_ph_1_by_6_lcmplx},
    FILTER(2, 1),
    {2, 3, nullptr, rk_voip_dsp_ph_2_by_3_lcmplx},
    FILTER(3, 1),
    {3, 2, nullptr, rk_voip_dsp_ph_3_by_1_lcmplx},
    {3, 4, nullptr, rk_voip_dsp_ph_3_by_4_lcmplx},
    FILTER(3, 5),
    FILTER(3, 10),
    {4, 1, nullptr, rk_voip_dsp_ph_4_by_1_lcmplx},
    {4, 3, nullptr, rk_voip_dsp_ph_4_by_1_lcmplx},
    FILTER(4, 7),
    FILTER(5, 3),
    FILTER(5, 8),
    FILTER(5, 9),
    FILTER(6, 1),
    FILTER(7, 4),
    FILTER(7, 8),
    FILTER(8, 7),
    FILTER(9, 5),
    FILTER(9, 10),
    FILTER(9, 20),
    {10, 3, rk_voip_dsp_ph_10_by_9, rk_voip_dsp_ph_10_by_9_lcmplx},
    FILTER(10, 9),
    FILTER(20, 9),
};

const int16_t* find_table(int16_t up, uint16_t down, bool low_complexity) {
    for (const Filter& filter : kFilters)
        if (filter.up == up && filter.down == down)
            return low_complexity ? filter.table_low_complexity : filter.table;
    return nullptr;
}

// The magnitudes of a branch add up to as much as 2.2 in Q15: full-scale input needs more than 32 bits.
// Compilers turn the loop into products of eight at a time.
int16_t convolve(const int16_t* __restrict newest, const int16_t* __restrict branch, int32_t taps) {
    int64_t sum = 0;
    for (int32_t j = 0; j < taps; ++j) sum += int32_t{newest[j]} * branch[j];
    return static_cast<int16_t>(std::clamp<int64_t>(sum >> 15, INT16_MIN, INT16_MAX));
}

}  // namespace

int32_t rk_dsp_src_init(rk_voip_dsp_src_stdata_t* stage, int16_t up, int16_t down, int16_t low_complexity) {
    *stage = {};
    stage->up = up;
    stage->down = static_cast<uint16_t>(down);
    stage->phase = static_cast<uint16_t>(stage->down - 1);
    if (up >= 1) {
        const int32_t lobes = low_complexity != 0 ? 10 : 20;
        const int32_t wider = std::max<int32_t>(up, stage->down);
        stage->taps = static_cast<int16_t>((lobes * wider + 1) / up);
    }
    stage->position = static_cast<int16_t>(stage->taps - 1);
    stage->table = find_table(up, stage->down, low_complexity != 0);
    return 1;
}

int32_t rk_dsp_src_proc_lc(rk_voip_dsp_src_stdata_t* stage, const int16_t* in, int16_t* out, int32_t count) {
    if (stage->table == nullptr) return 0;
    const int32_t up = stage->up, down = stage->down, taps = stage->taps;
    int16_t* const first = out;
    int32_t position = stage->position;
    // Of the up-sampled positions only every M-th is computed: go from one such branch to the next.
    int32_t branch = down - 1 - stage->phase;
    for (int32_t i = 0; i < count; ++i) {
        stage->history[position] = stage->history[position + taps] = in[i];
        for (; branch < up; branch += down)
            *out++ = convolve(stage->history + position, stage->table + branch * taps, taps);
        branch -= up;
        position = position == 0 ? taps - 1 : position - 1;
    }
    stage->phase = static_cast<uint16_t>(down - 1 - branch);
    stage->position = static_cast<int16_t>(position);
    return static_cast<int32_t>(out - first);
}

int32_t rk_dsp_src_proc(rk_voip_dsp_src_stdata_t* stage, const int16_t* in, int16_t* out, int32_t count) {
    return rk_dsp_src_proc_lc(stage, in, out, count);
}
