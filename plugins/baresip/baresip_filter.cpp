#include "baresip_filter.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

static_assert(sizeof(auframe) == 32 && offsetof(auframe, sampv) == 8 && offsetof(auframe, sampc) == 16);
static_assert(sizeof(aufilt_prm) == 12 && offsetof(aufilt_prm, ch) == 4 && offsetof(aufilt_prm, fmt) == 8);
static_assert(offsetof(aufilt_enc_st, le) == 8 && offsetof(aufilt, name) == 32 && sizeof(aufilt) == 72);

bool frames_are_known() {
    if (auframe_init == nullptr) return false;
    constexpr unsigned char kUntouched = 0xa5;
    struct {
        auframe frame;
        unsigned char beyond[256];  // room for the frames of other versions
    } seen;
    std::memset(&seen, kUntouched, sizeof seen);
    int16_t sample = 0;
    auframe_init(&seen.frame, AUFMT_FLOAT, &sample, 1);
    return seen.frame.fmt == AUFMT_FLOAT && seen.frame.sampv == &sample && seen.frame.sampc == 1 &&
           seen.frame.timestamp == 0 &&
           std::all_of(std::begin(seen.beyond), std::end(seen.beyond),
                       [](unsigned char byte) { return byte == kUntouched; });
}
