#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kernel_table.h"
#include "vq_ns_model.h"
#include "vq_ns_pipeline.h"

namespace {

/* A noisy recording and what PyTorch makes of it with the parameter file in the tree, in double precision.
 * training/golden.py writes the file and tells its form. */
struct Golden {
    std::string model_id;
    std::vector<int16_t> input;
    std::vector<float> output; /* from the first sample on that the engine delivers */
};

template <class T>
std::vector<T> take(const std::vector<char>& file, size_t& at, size_t count) {
    std::vector<T> values;
    if (count > (file.size() - at) / sizeof(T)) return values;
    values.resize(count);
    std::memcpy(values.data(), file.data() + at, count * sizeof(T));
    at += count * sizeof(T);
    return values;
}

Golden read_golden() {
    static_assert(std::endian::native == std::endian::little);
    const std::string magic = "vqns-golden-1\n";
    std::ifstream stream(VQNS_SOURCE_DIR "/tests/data/golden.bin", std::ios::binary);
    const std::vector<char> file{std::istreambuf_iterator<char>(stream), {}};
    Golden golden;
    if (file.size() < magic.size() + 25 || std::memcmp(file.data(), magic.data(), magic.size()) != 0)
        return golden;
    golden.model_id.assign(file.data() + magic.size(), 16);
    size_t at = magic.size() + 17;
    const auto counts = take<int32_t>(file, at, 2);
    golden.input = take<int16_t>(file, at, static_cast<size_t>(counts[0]));
    golden.output = take<float>(file, at, static_cast<size_t>(counts[1]));
    return golden;
}

std::vector<int16_t> through_engine(const std::vector<int16_t>& input, int32_t level) {
    const auto ns = std::make_unique<vq_ns_data>();
    EXPECT_EQ(vq_ns_reset(ns.get(), 16000, 16000), 0);
    fill_kernel_table(&ns->kernels, level);
    vq_ns_fft_init(ns->fft_pointer, 512, level);
    std::vector<int16_t> output;
    int16_t hop[160];
    for (size_t at = 0; at + 160 <= input.size(); at += 160) {
        const int32_t count = vq_ns_proc(ns.get(), &input[at], hop, 160);
        output.insert(output.end(), hop, hop + count);
    }
    return output;
}

/* The engine's own way from float to PCM: scaled, cut towards zero, clamped. */
int16_t to_pcm(float x) {
    return static_cast<int16_t>(std::fmin(std::fmax(std::trunc(x * 32768.0f), -32768.0f), 32767.0f));
}

double signal_to_difference(const std::vector<float>& wanted, const std::vector<int16_t>& got) {
    double signal = 0, difference = 0;
    for (size_t i = 0; i < wanted.size(); ++i) {
        const double pcm = to_pcm(wanted[i]);
        signal += pcm * pcm;
        difference += (pcm - got[i]) * (pcm - got[i]);
    }
    return 10 * std::log10(signal / difference);
}

TEST(Golden, EngineComputesWhatPyTorchComputes) {
    const Golden golden = read_golden();
    ASSERT_FALSE(golden.output.empty()) << "tests/data/golden.bin is missing or damaged";
    ASSERT_EQ(golden.model_id, vqns_model_id())
        << "tests/data/golden.bin belongs to another parameter file than the one compiled in; write it anew "
           "with training/golden.py";

    const auto probe = std::make_unique<vq_ns_data>();
    vq_ns_reset(probe.get(), 16000, 16000);
    const struct {
        const char* name;
        int32_t level;
        double at_least; /* dB */
    } levels[] = {
        {"generic", VQ_NS_LEVEL_GENERIC, 70}, {"AVX", VQ_NS_LEVEL_AVX, 70}, {"AVX2", VQ_NS_LEVEL_AVX2, 70}};
    for (const auto& [name, level, at_least] : levels) {
        if (level > probe->kernel_level) continue;
        const std::vector<int16_t> output = through_engine(golden.input, level);
        ASSERT_EQ(output.size(), golden.output.size()) << name;
        const double ratio = signal_to_difference(golden.output, output);
        std::printf("%-8s signal to difference %.1f dB\n", name, ratio);
        EXPECT_GT(ratio, at_least) << name;
    }
}

}  // namespace
