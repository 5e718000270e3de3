#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "levels.h"
#include "vq_ns_fft.h"

namespace {

using Complex = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;

std::vector<float> random_floats(size_t n, uint32_t seed, float scale = 1.0f) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-scale, scale);
    std::vector<float> x(n);
    for (float& v : x) v = uniform(random);
    return x;
}

std::vector<Complex> dft(const std::vector<Complex>& x) {
    const size_t n = x.size();
    std::vector<Complex> out(n);
    for (size_t k = 0; k < n; ++k) {
        for (size_t j = 0; j < n; ++j) {
            out[k] +=
                x[j] * std::polar(1.0, -2.0 * kPi * static_cast<double>(k * j % n) / static_cast<double>(n));
        }
    }
    return out;
}

struct Spectrum {
    float re[264] = {}, im[264] = {};
};

TEST(FftEngine, RefusesOtherLengthsAndLeavesTheRecordAlone) {
    for (const int32_t length : {-512, 0, 1, 2, 3, 6, 12, 510, 514, 1024, 2048}) {
        vq_ns_fft_data fft, before;
        std::memset(&fft, 0x5a, sizeof fft);
        std::memcpy(&before, &fft, sizeof fft);
        EXPECT_EQ(vq_ns_fft_init(&fft, length, 0), -1) << length;
        EXPECT_EQ(std::memcmp(&fft, &before, sizeof fft), 0) << length;
    }
}

TEST(FftEngine, TablesOf512) {
    vq_ns_fft_data fft;
    ASSERT_EQ(vq_ns_fft_init(&fft, 512, 0), 0);
    EXPECT_EQ(fft.n, 256);
    EXPECT_EQ(fft.m, 8);
    EXPECT_EQ(fft.real_length, 512);
    const int32_t reversed_nibbles[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
    EXPECT_EQ(std::memcmp(fft.seeds, reversed_nibbles, sizeof reversed_nibbles), 0);
    for (int32_t s = 4; s <= 8; ++s) {
        const int32_t size = 1 << s, count = size / 4 - 2;
        const float* table = fft.twiddles[s - 4];
        ASSERT_NE(table, nullptr);
        for (int32_t k = 1, slot = 0; k < size / 4; ++k) {
            if (k == size / 8) continue;
            for (int harmonic : {1, 3}) {
                /* The angle is rounded to single precision before its cosine and sine are taken. */
                const double a = static_cast<float>(harmonic * k * 6.283185307179586 / size);
                const float* arrays = table + (harmonic == 1 ? 0 : 3 * count) + slot;
                EXPECT_EQ(arrays[0], static_cast<float>(std::cos(a)));
                EXPECT_EQ(arrays[count], static_cast<float>(-(std::cos(a) + std::sin(a))));
                EXPECT_EQ(arrays[2 * count], static_cast<float>(std::sin(a) - std::cos(a)));
            }
            ++slot;
        }
    }
}

TEST(FftEngine, EverySizeIsTheDft) {
    for (const int32_t isa : levels()) {
        for (int32_t length = 4; length <= 512; length *= 2) {
            vq_ns_fft_data fft;
            ASSERT_EQ(vq_ns_fft_init(&fft, length, isa), 0);
            const size_t n = static_cast<size_t>(fft.n);
            std::vector<float> re = random_floats(n, 1), im = random_floats(n, 2);
            std::vector<Complex> x(n);
            for (size_t i = 0; i < n; ++i) x[i] = {re[i], im[i]};
            const std::vector<Complex> want = dft(x);
            vq_ns_fft_comp(&fft, re.data(), im.data(), fft.m);
            vq_ns_fft_bitrev(re.data(), fft.seeds, fft.m);
            vq_ns_fft_bitrev(im.data(), fft.seeds, fft.m);
            for (size_t k = 0; k < n; ++k) {
                EXPECT_NEAR(re[k], want[k].real(), 4e-6 * std::sqrt(static_cast<double>(n)) + 1e-6)
                    << n << " " << k;
                EXPECT_NEAR(im[k], want[k].imag(), 4e-6 * std::sqrt(static_cast<double>(n)) + 1e-6)
                    << n << " " << k;
            }
        }
    }
}

TEST(FftEngine, ImpulseAndConstantAreExact) {
    vq_ns_fft_data fft;
    ASSERT_EQ(vq_ns_fft_init(&fft, 512, 0), 0);
    float re[256] = {1.0f}, im[256] = {};
    vq_ns_fft_comp(&fft, re, im, 8);
    for (int k = 0; k < 256; ++k) {
        EXPECT_EQ(re[k], 1.0f);
        EXPECT_EQ(im[k], 0.0f);
    }
    for (float& x : re) x = 0.75f;
    vq_ns_fft_comp(&fft, re, im, 8);
    for (int k = 0; k < 256; ++k) EXPECT_EQ(re[k], k == 0 ? 192.0f : 0.0f);
    float untouched_re = 3.0f, untouched_im = 4.0f;
    vq_ns_fft_comp(&fft, &untouched_re, &untouched_im, 0);
    EXPECT_EQ(untouched_re, 3.0f);
    EXPECT_EQ(untouched_im, 4.0f);
}

TEST(FftKernels, LevelsAgreeBitForBit) {
    vq_ns_fft_data plain, v;
    ASSERT_EQ(vq_ns_fft_init(&plain, 512, 0), 0);
    for (const int32_t level : levels()) {
        ASSERT_EQ(vq_ns_fft_init(&v, 512, level), 0);
        EXPECT_EQ(v.proc1, level == 0   ? vq_ns_fft_proc1
                           : level == 1 ? vq_ns_fft_proc1_avx
                                        : vq_ns_fft_proc1_avx2);
        for (const float scale : {1.0f, 1e30f, 1e-38f}) {
            std::vector<float> want[4], got[4];
            for (uint32_t plane = 0; plane < 4; ++plane)
                want[plane] = got[plane] = random_floats(256, plane, scale);
            const auto same = [&](const char* kernel) {
                for (int plane = 0; plane < 4; ++plane) {
                    EXPECT_EQ(std::memcmp(want[plane].data(), got[plane].data(), 256 * sizeof(float)), 0)
                        << kernel;
                }
            };
            plain.comp1(want[0].data(), want[1].data(), want[2].data(), want[3].data(), 256);
            v.comp1(got[0].data(), got[1].data(), got[2].data(), got[3].data(), 256);
            same("comp1");
            plain.comp2(want[0].data(), want[1].data(), want[2].data(), want[3].data(), 256);
            v.comp2(got[0].data(), got[1].data(), got[2].data(), got[3].data(), 256);
            same("comp2");
            plain.proc1(want[0].data(), want[1].data(), 256);
            v.proc1(got[0].data(), got[1].data(), 256);
            same("proc1");
            plain.proc2(want[2].data(), 256);
            v.proc2(got[2].data(), 256);
            same("proc2");
            plain.compphase(want[0].data(), want[1].data(), want[2].data(), 256);
            v.compphase(got[0].data(), got[1].data(), got[2].data(), 256);
            same("compphase");
            for (const int32_t length : {512, 24, 8}) {
                std::vector<float> want_magnitude(257, -1.0f), got_magnitude(257, -1.0f);
                plain.compmag(want[0].data(), want[1].data(), want_magnitude.data(), length);
                v.compmag(got[0].data(), got[1].data(), got_magnitude.data(), length);
                EXPECT_EQ(want_magnitude, got_magnitude) << length;
            }
        }
    }
}

TEST(FftKernels, DoWhatTheyAreNamedFor) {
    /* The exchange is three rounded additions, not a copy: the small value is lost beside the large one. */
    float re[2] = {1.0f, 1e8f}, im[2] = {2.0f, 1.0f};
    vq_ns_fft_proc1(re, im, 2);
    EXPECT_EQ(re[0], 2.0f);
    EXPECT_EQ(im[0], 1.0f);
    EXPECT_EQ(re[1], 0.0f);
    EXPECT_EQ(im[1], 1e8f);

    const float packed_re[4] = {-3.0f, 3.0f, 0.0f, -1.0f}, packed_im[4] = {-7.0f, -4.0f, 2.0f, 0.0f};
    float magnitude[5];
    vq_ns_fft_compmag(packed_re, packed_im, magnitude, 8);
    const float want[5] = {3.0f, 5.0f, 2.0f, 1.0f, 7.0f};
    for (int k = 0; k < 5; ++k) EXPECT_FLOAT_EQ(magnitude[k], want[k]);
    float phase[4];
    vq_ns_fft_compphase(packed_re, packed_im, phase, 4);
    for (int k = 0; k < 4; ++k) EXPECT_FLOAT_EQ(phase[k], std::atan2(packed_im[k], packed_re[k]));
}

TEST(Spectrum, ForwardIsTheRealDft) {
    vq_ns_fft_data fft;
    ASSERT_EQ(vq_ns_fft_init(&fft, 512, 0), 0);
    const std::vector<float> time = random_floats(512, 7);
    std::vector<Complex> x(time.begin(), time.end());
    const std::vector<Complex> want = dft(x);
    std::vector<float> frame = time;
    Spectrum s;
    EXPECT_EQ(vq_ns_fft_process(&fft, frame.data(), true, s.re, s.im), 0);
    EXPECT_EQ(frame, time) << "the frame is read only";
    for (size_t k = 0; k <= 256; ++k) {
        EXPECT_NEAR(s.re[k], want[k].real(), 2e-4) << k;
        EXPECT_NEAR(s.im[k], want[k].imag(), 2e-4) << k;
    }
    EXPECT_EQ(s.im[0], 0.0f);
    EXPECT_EQ(s.im[256], 0.0f);
    for (int k = 257; k < 264; ++k) EXPECT_EQ(s.re[k], 0.0f) << "257 bins are written, no more";
}

TEST(Spectrum, ConstantAndCosineFrames) {
    vq_ns_fft_data fft;
    ASSERT_EQ(vq_ns_fft_init(&fft, 512, levels().back()), 0);
    Spectrum s;
    std::vector<float> frame(512, 0.25f);
    vq_ns_fft_process(&fft, frame.data(), true, s.re, s.im);
    EXPECT_EQ(s.re[0], 128.0f);
    for (int k = 1; k <= 256; ++k) EXPECT_NEAR(std::hypot(s.re[k], s.im[k]), 0.0, 1e-5);
    for (size_t t = 0; t < 512; ++t) {
        frame[t] = 0.5f * static_cast<float>(std::cos(2 * kPi * 10 * static_cast<double>(t) / 512));
    }
    vq_ns_fft_process(&fft, frame.data(), true, s.re, s.im);
    for (int k = 0; k <= 256; ++k) EXPECT_NEAR(s.re[k], k == 10 ? 128.0 : 0.0, 2e-4) << k;
}

TEST(Spectrum, InverseReturnsTheFrameButForTheEvenOddTerm) {
    for (const int32_t level : levels()) {
        vq_ns_fft_data fft;
        ASSERT_EQ(vq_ns_fft_init(&fft, 512, level), 0);
        const std::vector<float> time = random_floats(512, 9);
        std::vector<float> frame = time;
        Spectrum s;
        vq_ns_fft_process(&fft, frame.data(), true, s.re, s.im);
        frame[0] = s.re[0];
        frame[1] = s.re[256];
        for (int k = 1; k < 256; ++k) {
            frame[static_cast<size_t>(2 * k)] = s.re[k];
            frame[static_cast<size_t>(2 * k + 1)] = s.im[k];
        }
        /* The mean of the odd samples is what the packing drops. */
        const double dropped = (static_cast<double>(s.re[0]) - static_cast<double>(s.re[256])) / 2 / 256;
        vq_ns_ifft_process(&fft, frame.data(), false, s.re, s.im);
        for (size_t t = 0; t < 512; ++t) {
            const double want = time[t] - (t % 2 == 1 ? dropped : 0.0);
            EXPECT_NEAR(frame[t], want, 1e-5) << t;
        }
    }
}

/* FNV-1a over the bits. */
void digest(uint64_t& hash, const float* x, size_t n) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(x);
    for (size_t i = 0; i < n * sizeof *x; ++i) hash = (hash ^ bytes[i]) * 0x100000001b3;
}

/* The tests above allow other roundings; streams that are to come out alike on every machine do not. The
 * value was agreed by a scalar model of every butterfly, rotation and step of the twiddle recurrence. */
TEST(Spectrum, EveryRoundingIsFixed) {
    for (const int32_t level : levels()) {
        vq_ns_fft_data fft;
        ASSERT_EQ(vq_ns_fft_init(&fft, 512, level), 0);
        std::mt19937 random(11);
        uint64_t hash = 0xcbf29ce484222325;
        for (int frame = 0; frame < 50; ++frame) {
            float time[512];
            Spectrum s;
            for (float& v : time) v = static_cast<float>(random() >> 8) * 0x1p-23f - 1.0f;
            vq_ns_fft_process(&fft, time, true, s.re, s.im);
            digest(hash, s.re, 257);
            digest(hash, s.im, 257);
            vq_ns_ifft_process(&fft, time, false, s.re, s.im);
            digest(hash, time, 512);
        }
        EXPECT_EQ(hash, 6232514380239602970u) << level;
    }
}

TEST(Window, OverlapsToItsConstant) {
    EXPECT_EQ(hanning_win_coeff[0], 0.0f);
    EXPECT_EQ(hanning_win_coeff[240], 1.0f);
    for (int i = 0; i < 480; ++i) {
        EXPECT_NEAR(hanning_win_coeff[i], 0.5 - 0.5 * std::cos(2 * kPi * i / 480), 6e-8);
        EXPECT_EQ(hanning_win_coeff[i], hanning_win_coeff[(480 - i) % 480]);
    }
    for (int i = 0; i < 160; ++i) {
        double sum = 0;
        for (int part = 0; part < 3; ++part) sum += std::pow(hanning_win_coeff[i + 160 * part], 2);
        EXPECT_NEAR(sum, 1.125, 1e-6);
    }
}

}  // namespace
