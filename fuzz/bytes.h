/* The fuzzer's input, read as the values that a target asks for. */
#ifndef BYTES_H
#define BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

struct Bytes {
    const uint8_t* data;
    size_t left;

    uint8_t byte() {
        if (left == 0) return 0;
        --left;
        return *data++;
    }
    uint32_t word() {
        uint32_t w = 0;
        for (int i = 0; i < 4; ++i) w = w << 8 | byte();
        return w;
    }
    /* In memory of its own, so that reads beyond it are seen. */
    std::vector<int16_t> pcm(size_t n) {
        std::vector<int16_t> x(n);
        const size_t taken = left < 2 * n ? left : 2 * n;
        if (taken > 0) std::memcpy(x.data(), data, taken);
        data += taken;
        left -= taken;
        return x;
    }
};

constexpr int32_t kRates[8] = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000};

#endif
