#include <gtest/gtest.h>

#include "vq_ns_kernels.h"

#if defined(__has_include)
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#endif
#endif
#ifndef ASAN_POISON_MEMORY_REGION
#define ASAN_POISON_MEMORY_REGION(at, size) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(at, size) static_cast<void>(0)
#endif

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "kernel_table.h"
#include "levels.h"
#include "vq_ns_kernels_simd.h"
#include "vq_ns_pipeline.h"

namespace {

using Floats = std::vector<float>;
constexpr double kRounding = 0x1p-24; /* of one operation in single precision, relative */
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::mt19937 random_bits(20);

int from(int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random_bits);
}

double at(const Floats& x, int i) {
    return static_cast<double>(x[static_cast<size_t>(i)]);
}

size_t count_of(int a, int b = 1, int c = 1, int d = 1) {
    return static_cast<size_t>(a) * static_cast<size_t>(b * c * d);
}

int16_t short_of(int x) {
    return static_cast<int16_t>(x);
}

vq_ns_kernel_table table_of(int32_t level) {
    vq_ns_kernel_table table;
    fill_kernel_table(&table, level);
    return table;
}

/* An array that starts anywhere and is fenced on both sides: with a pattern that no kernel may change, that
 * is a not-a-number where a kernel computes with it, and that the address sanitizer forbids to touch. */
template <typename T>
class Fenced {
  public:
    explicit Fenced(const std::vector<T>& values)
        : memory_(2 * kFence + values.size() + 8),
          start_(kFence + count_of(from(0, 7))),
          size_(values.size()) {
        std::memset(memory_.data(), 0xff, memory_.size() * sizeof(T));
        std::copy(values.begin(), values.end(), data());
        ASAN_POISON_MEMORY_REGION(memory_.data(), start_ * sizeof(T));
        ASAN_POISON_MEMORY_REGION(data() + size_, (memory_.size() - start_ - size_) * sizeof(T));
    }
    ~Fenced() {
        ASAN_UNPOISON_MEMORY_REGION(memory_.data(), memory_.size() * sizeof(T));
        std::memset(data(), 0xff, size_ * sizeof(T));
        const std::vector<uint8_t> fences(memory_.size() * sizeof(T), 0xff);
        EXPECT_EQ(std::memcmp(memory_.data(), fences.data(), fences.size()), 0)
            << "a fence of an array of " << size_;
    }
    Fenced(const Fenced&) = delete;
    Fenced& operator=(const Fenced&) = delete;
    T* data() {
        return memory_.data() + start_;
    }
    std::vector<T> values() {
        return {data(), data() + size_};
    }

  private:
    static constexpr size_t kFence = 64;
    std::vector<T> memory_;
    size_t start_, size_;
};

/* What kernels are fed: the everyday, and what breaks careless ones. */
enum class Feed { kNormal, kZeros, kDenormals, kLarge, kAnyExponent };
constexpr Feed kFeeds[] = {Feed::kNormal, Feed::kZeros, Feed::kDenormals, Feed::kLarge, Feed::kAnyExponent};

Floats feed(size_t n, Feed kind, float scale = 1.0f) {
    std::normal_distribution<float> normal(0, scale);
    Floats x(n);
    for (float& v : x) {
        v = normal(random_bits);
        if (kind == Feed::kZeros) v = std::copysign(0.0f, v);
        if (kind == Feed::kDenormals) v *= 1e-40f;
        if (kind == Feed::kLarge) v *= 1e15f;
        if (kind == Feed::kAnyExponent) v = std::ldexp(v, from(-100, 40));
    }
    return x;
}

Floats normal(size_t n, float scale = 1.0f) {
    return feed(n, Feed::kNormal, scale);
}

/* A sum of products in double precision, and the error that single precision may make of it: any order of
 * `terms` additions, fused or not, stays within (terms + 2) roundings of the sum of magnitudes, and a product
 * may lose the last bit of the smallest denormal. */
struct Sum {
    double value = 0, magnitude = 0;
    int terms = 0;
    void add(double x) {
        value += x;
        magnitude += std::fabs(x);
        ++terms;
    }
    [[nodiscard]] double bound() const {
        return (terms + 2) * (kRounding * magnitude + 0x1p-149);
    }
};

void expect_close(const Floats& got, const std::vector<Sum>& want, const std::string& what) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_NEAR(static_cast<double>(got[i]), want[i].value, want[i].bound()) << what << ", element " << i;
    }
}

/* ---- The table ---- */

TEST(KernelTable, HoldsTheKernelsOfItsLevel) {
    const auto address = [](auto* f) { return reinterpret_cast<void*>(f); };
    const vq_ns_kernel_table levels[] = {table_of(0), table_of(1), table_of(2)};
    const auto row = [&](auto slot, auto* plain, auto* avx, auto* avx2) {
        const std::array<void*, 3> got = {address(levels[0].*slot), address(levels[1].*slot),
                                          address(levels[2].*slot)};
        EXPECT_EQ(got, (std::array<void*, 3>{address(plain), address(avx), address(avx2)}));
    };
    using T = vq_ns_kernel_table;
    row(&T::mclear, vq_ns_mclear, vq_ns_mclear, vq_ns_mclear);
    row(&T::cpy, vq_ns_cpy, vq_ns_cpy_avx, vq_ns_cpy_avx2);
    row(&T::cpy_dpc, vq_ns_cpy_dpc, vq_ns_cpy_dpc, vq_ns_cpy_dpc);
    row(&T::add, vq_ns_add, vq_ns_add_avx, vq_ns_add_avx2);
    row(&T::smac, vq_ns_smac, vq_ns_smac_avx, vq_ns_smac_avx2);
    row(&T::smul, vq_ns_smul, vq_ns_smul, vq_ns_smul_avx2);
    row(&T::s2f, vq_ns_s2f, vq_ns_s2f, vq_ns_s2f_avx2);
    row(&T::concat, vq_ns_concat, vq_ns_concat, vq_ns_concat);
    row(&T::nm0, vq_ns_nm0, vq_ns_nm0_avx, vq_ns_nm0_avx2);
    row(&T::nm1, vq_ns_nm1, vq_ns_nm1_avx, vq_ns_nm1_avx2);
    row(&T::l1, vq_ns_l1, vq_ns_l1_avx, vq_ns_l1_avx2);
    row(&T::l2, vq_ns_l2, vq_ns_l2_avx, vq_ns_l2_avx2);
    row(&T::l3, vq_ns_l3, vq_ns_l3_avx, vq_ns_l3_avx2);
    row(&T::l4, vq_ns_l4, vq_ns_l4_avx, vq_ns_l4_avx2);
    row(&T::l5, vq_ns_l5, vq_ns_l5_avx, vq_ns_l5_avx2);
    row(&T::l6, vq_ns_l6, vq_ns_l6_avx, vq_ns_l6_avx2);
    row(&T::l7, vq_ns_l7, vq_ns_l7_avx, vq_ns_l7_avx2);
    row(&T::l8, vq_ns_l8, vq_ns_l8_avx, vq_ns_l8_avx2);
    row(&T::l9, vq_ns_l9, vq_ns_l9, vq_ns_l9);
}

/* ---- Element kernels ---- */

TEST(ElementKernels, AreExactOnWholeBlocksAndTouchNothingElse) {
    struct Kernel {
        const char* name;
        std::function<void(const vq_ns_kernel_table&, float*, const float*, int16_t)> run;
        float (*element)(float x, float y);
    };
    const Kernel kernels[] = {
        {"mclear", [](const auto& k, float* x, const float*, int16_t n) { k.mclear(x, n); },
         [](float, float) { return 0.0f; }},
        {"cpy", [](const auto& k, float* x, const float* y, int16_t n) { k.cpy(y, x, n); },
         [](float, float y) { return y; }},
        {"add", [](const auto& k, float* x, const float* y, int16_t n) { k.add(x, y, n); },
         [](float x, float y) { return x + y; }},
        {"smac", [](const auto& k, float* x, const float*, int16_t n) { k.smac(x, -0.3f, n); },
         [](float x, float) { return x * -0.3f; }},
        {"smul", [](const auto& k, float* x, const float* y, int16_t n) { k.smul(x, y, n); },
         [](float x, float y) { return x * y; }},
    };
    for (const int32_t level : levels()) {
        const vq_ns_kernel_table table = table_of(level);
        for (const Kernel& kernel : kernels) {
            for (const int n : {-32768, -1, 0, 1, 7, 8, 9, 257, 514, 4064, 32767}) {
                const size_t size = n > 0 ? static_cast<size_t>(n + 7) / 8 * 8 : 0;
                for (const Feed kind : kFeeds) {
                    Floats x = feed(size, kind), y = feed(size, kind);
                    if (size > 0) x[size - 1] = kInfinity, y[0] = -kInfinity;
                    Fenced<float> fenced_x(x), fenced_y(y);
                    kernel.run(table, fenced_x.data(), fenced_y.data(), static_cast<int16_t>(n));
                    for (size_t i = 0; i < size; ++i) x[i] = kernel.element(x[i], y[i]);
                    const Floats got = fenced_x.values();
                    ASSERT_TRUE(size == 0 || std::memcmp(got.data(), x.data(), size * sizeof(float)) == 0)
                        << kernel.name << ", level " << level << ", count " << n;
                    ASSERT_EQ(fenced_y.values(), y);
                }
            }
        }
    }
}

TEST(ElementKernels, AlignedClearsClearWholeBlocks) {
    for (const auto clear : {vq_ns_mclear_avx, levels().size() > 2 ? vq_ns_mclear_avx2 : vq_ns_mclear_avx}) {
        alignas(32) float x[272];
        std::fill(std::begin(x), std::end(x), 1.0f);
        clear(x, 257);
        for (size_t i = 0; i < 272; ++i) ASSERT_EQ(x[i], i < 264 ? 0.0f : 1.0f);
    }
}

TEST(ElementKernels, EverySampleBecomesItsFloat) {
    std::vector<int16_t> all(32768);
    std::vector<void (*)(const int16_t*, float*, int16_t)> kernels = {vq_ns_s2f, vq_ns_s2f_avx};
    for (const int32_t level : levels()) kernels.push_back(table_of(level).s2f);
    for (const auto s2f : kernels) {
        for (const int first : {-32768, 0}) {
            for (size_t i = 0; i < all.size(); ++i)
                all[i] = static_cast<int16_t>(first + static_cast<int>(i));
            Fenced<int16_t> in(all);
            Fenced<float> out(Floats(all.size()));
            s2f(in.data(), out.data(), 32767);
            const Floats got = out.values();
            for (size_t i = 0; i < all.size(); ++i)
                ASSERT_EQ(got[i], std::ldexp(static_cast<float>(all[i]), -15));
        }
    }
}

TEST(ElementKernels, ExactCopyIsAnAscendingElementCopyWhereverTheArraysLie) {
    for (const int n : {-1, 0, 1, 7, 8, 9, 16, 40, 257, 514}) {
        for (int distance = -40; distance <= 40; ++distance) {
            const size_t count = n > 0 ? static_cast<size_t>(n) : 0;
            Floats want = normal(count + 40);
            Fenced<float> memory(want);
            const size_t source = distance < 0 ? static_cast<size_t>(-distance) : 0;
            const size_t target = distance < 0 ? 0 : static_cast<size_t>(distance);
            vq_ns_cpy_dpc(memory.data() + source, memory.data() + target, static_cast<int16_t>(n));
            for (size_t i = 0; i < count; ++i) want[target + i] = want[source + i];
            ASSERT_EQ(memory.values(), want) << n << " moved by " << distance;
        }
    }
}

TEST(ElementKernels, InterleavingCountsItsOutput) {
    for (const int n : {-2, 0, 2, 6, 514, 528, 32766}) {
        const size_t half = n > 0 ? static_cast<size_t>(n) / 2 : 0;
        const Floats a = normal(half), b = normal(half);
        Fenced<float> out(Floats(2 * half)), fenced_a(a), fenced_b(b);
        vq_ns_concat(out.data(), fenced_a.data(), fenced_b.data(), static_cast<int16_t>(n));
        const Floats got = out.values();
        for (size_t i = 0; i < 2 * half; ++i) ASSERT_EQ(got[i], i % 2 == 0 ? a[i / 2] : b[i / 2]);
    }
}

/* ---- Activations ---- */

TEST(Activations, TableHoldsRoundedTangents) {
    for (int i = 0; i <= 200; ++i) {
        const double entry = static_cast<double>(tansig_table[i]);
        EXPECT_NEAR(entry, std::tanh(0.04 * i), 5.1e-7) << i;
        EXPECT_EQ(tansig_table[i], static_cast<float>(std::round(entry * 1e6) * 1e-6))
            << i << ": six decimals";
    }
    EXPECT_EQ(tansig_table[0], 0.0f);
    for (int i = 190; i <= 200; ++i) EXPECT_EQ(tansig_table[i], 1.0f);
}

TEST(Activations, ApproximationsSaturateExactlyAndStayClose) {
    const std::map<float, float> exact = {
        {0.0f, 0.0f}, {8.0f, 1.0f}, {-8.0f, -1.0f}, {kInfinity, 1.0f}, {-kInfinity, -1.0f}};
    for (const auto& [x, y] : exact) EXPECT_EQ(vq_ns_tansig_approx(x), y) << x;
    EXPECT_EQ(vq_ns_tansig_approx(kNan), 1.0f);
    EXPECT_EQ(vq_ns_sigmoid_approx(0.0f), 0.5f);
    EXPECT_EQ(vq_ns_sigmoid_approx(16.0f), 1.0f);
    EXPECT_EQ(vq_ns_sigmoid_approx(-16.0f), 0.0f);
    /* The step to the next order, d^3 tanh'''(x) / 6 with d = 0.02, is at most 2.7e-6; entries are good to
     * 5e-7. */
    for (int i = 0; i < 21600; ++i) {
        const float x = static_cast<float>(i) * 0.00037f, y = vq_ns_tansig_approx(x);
        ASSERT_NEAR(static_cast<double>(y), std::tanh(static_cast<double>(x)), 3.3e-6) << x;
        ASSERT_EQ(vq_ns_tansig_approx(-x), -y) << x;
        ASSERT_NEAR(static_cast<double>(vq_ns_sigmoid_approx(x)), 1 / (1 + std::exp(-static_cast<double>(x))),
                    1.7e-6);
    }
}

/* ---- Convolutions and the dense layer ---- */

using T = vq_ns_kernel_table;

struct Convolution {
    const char* name;
    vq_ns_convolution_fn* T::*slot;
    bool transposed;
    int times, taps, ch_in, ch_out, bins_in, bins_out;

    [[nodiscard]] double weight(const Floats& w, int t, int k, int c, int o) const {
        if (ch_out == 2) return at(w, ((t * taps + k) * 2 + o) * ch_in + c);
        const int before = transposed ? ((t * taps + k) * ch_out / 8 + o / 8) * ch_in + c
                                      : ((o / 8 * times + t) * taps + k) * ch_in + c;
        return at(w, before * 8 + o % 8);
    }

    /* Calls each(output element, input element, t, k, c, o) for every product of the layer. */
    template <typename Each>
    void products(const Each& each) const {
        const int bins = transposed ? bins_in : bins_out; /* the coarser side */
        for (int t = 0; t < times; ++t) {
            for (int f = 0; f < bins; ++f) {
                for (int k = 0; k < taps; ++k) {
                    for (int c = 0; c < ch_in; ++c) {
                        for (int o = 0; o < ch_out; ++o) {
                            const int fine = 2 * f + k;
                            each(transposed ? (t * bins_out + fine) * ch_out + o : f * ch_out + o,
                                 transposed ? f * ch_in + c : (t * bins_in + fine) * ch_in + c, t, k, c, o);
                        }
                    }
                }
            }
        }
    }

    void check(Feed kind) const {
        const Floats in = feed(count_of(transposed ? 1 : times, bins_in, ch_in), kind);
        const Floats w = normal(count_of(times, taps, ch_in, ch_out), 0.2f), bias = normal(count_of(ch_out));
        /* Transposed ones add to what is there; the others write. */
        const size_t size = count_of(transposed ? times : 1, bins_out, ch_out);
        const Floats before = transposed ? feed(size, kind) : Floats(size, kNan);
        std::vector<Sum> want(size);
        for (size_t i = 0; i < size; ++i) {
            if (transposed) want[i].add(static_cast<double>(before[i]));
            if (i < count_of(bins_out, ch_out)) want[i].add(static_cast<double>(bias[i % bias.size()]));
        }
        products([&](int out, int x, int t, int k, int c, int o) {
            want[count_of(out)].add(weight(w, t, k, c, o) * at(in, x));
        });
        for (const int32_t level : levels()) {
            Fenced<float> fenced_in(in), fenced_w(w), fenced_bias(bias), out(before);
            (table_of(level).*slot)(fenced_in.data(), fenced_w.data(), fenced_bias.data(), out.data(),
                                    short_of(ch_in), short_of(ch_out), short_of(bins_in), short_of(bins_out));
            expect_close(out.values(), want, name + std::string(", level ") + std::to_string(level));
        }
    }
};

TEST(LayerKernels, ConvolutionsAreTheirSums) {
    for (const Convolution& network : {Convolution{"l1", &T::l1, false, 2, 5, 2, 32, 257, 127},
                                       {"l2", &T::l2, false, 2, 3, 32, 48, 127, 63},
                                       {"l3", &T::l3, false, 1, 3, 48, 64, 63, 31},
                                       {"l6", &T::l6, true, 1, 3, 64, 48, 31, 63},
                                       {"l7", &T::l7, true, 2, 3, 48, 32, 63, 127},
                                       {"l8", &T::l8, true, 2, 5, 32, 2, 127, 257}}) {
        network.check(Feed::kNormal);
        for (const Feed kind : kFeeds) {
            for (int i = 0; i <= 12; ++i) {
                Convolution c = network;
                c.ch_in = from(1, 70);
                if (c.ch_out != 2) c.ch_out = 8 * from(1, 9);
                const int coarse = i < 5 ? i : from(1, 45), fine = 2 * (coarse - 1) + c.taps;
                c.bins_in = c.transposed ? coarse : fine;
                c.bins_out = c.transposed ? fine : coarse;
                c.check(kind);
            }
        }
    }
}

TEST(LayerKernels, DenseLayerIsItsSums) {
    for (const Feed kind : kFeeds) {
        for (const int units : {8, 16, 24, 40, 56, 64}) {
            for (const int rows : {0, 1, 2, 5, 6, 7, 13, 31, 40}) {
                const Floats in = feed(count_of(rows, units), kind), w = normal(count_of(units, units), 0.2f);
                const Floats b = normal(count_of(units));
                std::vector<Sum> want(in.size());
                for (int i = 0; i < rows * units; ++i) {
                    const int j = i % units;
                    want[count_of(i)].add(at(b, j));
                    for (int c = 0; c < units; ++c) {
                        want[count_of(i)].add(at(w, (j / 8 * units + c) * 8 + j % 8) * at(in, i - j + c));
                    }
                }
                for (const int32_t level : levels()) {
                    Fenced<float> fenced_in(in), fenced_w(w), fenced_b(b), out(Floats(want.size(), kNan));
                    table_of(level).l5(fenced_in.data(), fenced_w.data(), fenced_b.data(), out.data(),
                                       short_of(rows), short_of(units));
                    expect_close(out.values(), want, "l5, level " + std::to_string(level));
                }
            }
        }
    }
}

TEST(LayerKernels, MaskIsAComplexProductButForTheFirstImaginaryPart) {
    const Floats re = normal(257), im = normal(257), mask = normal(514);
    Fenced<float> fenced_re(re), fenced_im(im), fenced_mask(mask), out(Floats(514, kNan));
    vq_ns_l9(fenced_re.data(), fenced_im.data(), fenced_mask.data(), out.data(), 257);
    std::vector<Sum> want(514);
    for (int k = 0; k < 257; ++k) {
        Sum &real = want[count_of(2 * k)], &imaginary = want[count_of(2 * k + 1)];
        real.add(at(re, k) * at(mask, 2 * k));
        real.add(-at(im, k) * at(mask, 2 * k + 1));
        if (k == 0) continue;
        imaginary.add(at(re, k) * at(mask, 2 * k + 1));
        imaginary.add(at(im, k) * at(mask, 2 * k));
    }
    expect_close(out.values(), want, "l9");
}

/* ---- The recurrent layer ---- */

/* Of one activation, absolute. */
double activation_error(int32_t level) {
    return level == VQ_NS_LEVEL_GENERIC ? 3.3e-6 : 2e-7;
}

double true_sigmoid(double x) {
    return 1 / (1 + std::exp(-x));
}

struct Recurrent {
    int rows, units, stride;
    Floats x, wi, wh, b;

    /* One gate's product with its bias. side: 0 of the input, 1 of the state. */
    [[nodiscard]] Sum gate(const float* in, int unit, int g, int side) const {
        Sum sum;
        const int block = unit / 8, u = unit % 8;
        sum.add(at(b, block * 48 + g * 16 + side * 8 + u));
        for (int i = 0; i < units; ++i) {
            sum.add(at(side == 0 ? wi : wh, (block * units + i) * 24 + g * 8 + u) *
                    static_cast<double>(in[i]));
        }
        return sum;
    }

    /* Expects one new state value, given the state that the kernel itself had before. */
    void expect_unit(float got, const float* in, const float* h, int unit, int32_t level) const {
        const auto sum = [&](int g, int side) { return gate(side == 0 ? in : h, unit, g, side); };
        const Sum recurrent = sum(2, 1);
        const double error = activation_error(level), old = static_cast<double>(h[unit]);
        const double z = true_sigmoid(sum(0, 0).value + sum(0, 1).value);
        const double r = true_sigmoid(sum(1, 0).value + sum(1, 1).value);
        const double n = std::tanh(sum(2, 0).value + r * recurrent.value);
        /* Both products of a gate, rounded once more where they meet. */
        const auto off = [&](int g) {
            const Sum a = sum(g, 0), c = sum(g, 1);
            return a.bound() + c.bound() + 2 * kRounding * (a.magnitude + c.magnitude);
        };
        /* The sigmoid's slope is 1/4 at most, the tangent's 1. */
        const double z_error = std::fmin(1.0, error + off(0) / 4),
                     r_error = std::fmin(1.0, error + off(1) / 4);
        const double n_error = std::fmin(2.0, error + off(2) + r_error * std::fabs(recurrent.value));
        const double scale = std::fabs(old) + std::fabs(n);
        ASSERT_NEAR(static_cast<double>(got), z * old + (1 - z) * n,
                    scale * (z_error + 4 * kRounding) + n_error)
            << "level " << level << ", unit " << unit << " of " << units << ", stride " << stride;
    }

    void check(const Floats& initial, int first_state, int32_t level) const {
        Fenced<float> fenced_x(x), fenced_wi(wi), fenced_wh(wh), fenced_b(b), state(initial);
        Fenced<float> out(Floats(x.size(), kNan));
        table_of(level).l4(fenced_x.data(), out.data(), state.data() + first_state, fenced_wi.data(),
                           fenced_wh.data(), fenced_b.data(), short_of(rows), short_of(units),
                           short_of(stride));
        const Floats got = out.values();
        Floats h = initial;
        for (int t = 0; t < rows; ++t) {
            float* row = h.data() + first_state + t * stride;
            for (int u = 0; u < units; ++u) {
                expect_unit(got[count_of(t * units + u)], x.data() + t * units, row, u, level);
            }
            std::copy_n(got.begin() + t * units, units, row);
        }
        ASSERT_EQ(state.values(), h) << "level " << level << ", stride " << stride;
    }
};

TEST(LayerKernels, RecurrentLayerStepsEachRowFromItsState) {
    const auto run = [](int rows, int units, int stride, Feed kind, float weights) {
        const size_t n = count_of(units, units, 3);
        const Recurrent layer = {rows,
                                 units,
                                 stride,
                                 feed(count_of(rows, units), kind),
                                 normal(n, weights),
                                 normal(n, weights),
                                 normal(count_of(units, 6))};
        const int reach = std::max(rows - 1, 0) * stride;
        const Floats initial = normal(count_of(units + std::abs(reach)));
        for (const int32_t level : levels()) layer.check(initial, std::max(0, -reach), level);
    };
    for (const int stride : {0, 64}) run(31, 64, stride, Feed::kNormal, 0.2f);
    for (const int units : {72, 128}) run(31, units, 0, Feed::kNormal, 0.1f);
    for (const Feed kind : kFeeds) {
        for (int i = 0; i < 10; ++i) {
            const int units = 8 * from(1, 8), rows = i == 0 ? 0 : i == 1 ? from(33, 70) : from(1, 12);
            for (const int stride :
                 {0, units, -units, units + from(1, 9), from(1, units - 1), -from(1, units - 1)}) {
                run(rows, units, stride, kind, i % 4 == 0 ? 30.0f : 0.2f);
            }
        }
    }
}

/* Gates fed through the biases alone, old state 1: update(x) shows as z where the candidate is 0, and the
 * candidate shows where z is 0. */
TEST(LayerKernels, RecurrentActivationsHoldOverTheirWholeRange) {
    const Floats zeros(8 * 24);
    const auto step = [&](int32_t level, float z, float n) {
        Floats b(48), x(8), h(8, 1.0f), out(8);
        std::fill_n(b.begin(), 8, z);
        std::fill_n(b.begin() + 32, 8, n);
        table_of(level).l4(x.data(), out.data(), h.data(), zeros.data(), zeros.data(), b.data(), 1, 8, 0);
        for (const float v : out) EXPECT_EQ(v, out[0]);
        return out[0];
    };
    for (const int32_t level : levels()) {
        EXPECT_EQ(step(level, 0.0f, 0.0f), 0.5f);
        EXPECT_EQ(step(level, 100.0f, 0.0f), 1.0f);
        EXPECT_LE(step(level, -100.0f, 0.0f), 1e-37f);
        EXPECT_EQ(step(level, -100.0f, 0.0f), step(level, -1e30f, 0.0f)) << "clamped alike";
        Floats arguments = {0.0f, -0.0f, 1e-45f, -1e-45f, 87.5f, 88.37626f, 88.4f, 1e30f, 3.4e38f};
        for (int i = 0; i < 7250; ++i) arguments.push_back(static_cast<float>(i) * 0.0131f);
        for (const float magnitude : arguments) {
            for (const float x : {magnitude, -magnitude}) {
                const double exact = static_cast<double>(x), error = activation_error(level);
                ASSERT_NEAR(static_cast<double>(step(level, x, 0.0f)), true_sigmoid(exact), error)
                    << level << " " << x;
                ASSERT_NEAR(static_cast<double>(step(level, -200.0f, x)), std::tanh(exact), error)
                    << level << " " << x;
            }
        }
    }
}

/* ---- Normalisations ---- */

/* One row; the mean is rounded to single precision and the deviation taken about it. `bound`: a few roundings
 * of each step; what a mean one rounding off does to the result; and its effect on the deviation. */
void expect_normalised(const float* x, const float* got, const Floats& scale, const Floats& shift,
                       const float* slope, size_t n, int divisor, const std::string& what) {
    double sum = 0, squares = 0;
    for (size_t i = 0; i < n; ++i) sum += static_cast<double>(x[i]);
    const double per_element = static_cast<double>(1.0f / static_cast<float>(divisor));
    const double mean = static_cast<double>(static_cast<float>(sum * per_element));
    for (size_t i = 0; i < n; ++i)
        squares += (static_cast<double>(x[i]) - mean) * (static_cast<double>(x[i]) - mean);
    const double variance = squares * per_element + static_cast<double>(0.001f),
                 inverse = 1 / std::sqrt(variance);
    const double off = 2 * kRounding * std::fabs(mean) + 0x1p-149;
    const double inverse_error = 6 * kRounding + (off * off + 2 * off * std::sqrt(variance)) / variance;
    for (size_t i = 0; i < n; ++i) {
        const double centred = static_cast<double>(x[i]) - mean;
        const double term = centred * inverse * static_cast<double>(scale[i]),
                     y = term + static_cast<double>(shift[i]);
        const double a = slope != nullptr ? static_cast<double>(slope[i]) : 1.0;
        const double bound = off * inverse * std::fabs(static_cast<double>(scale[i])) +
                             std::fabs(term) * (inverse_error + 4 * kRounding) +
                             2 * kRounding * std::fabs(y) + 0x1p-140;
        ASSERT_NEAR(static_cast<double>(got[i]), y > 0 ? y : y * a,
                    bound * std::fmax(1.0, std::fabs(a)) * 1.01)
            << what << ", element " << i << " of " << n;
    }
}

/* One row at the plain level, where every rounding is fixed. */
Floats normalised_exactly(const float* x, const Floats& scale, const Floats& shift, const float* slope,
                          size_t n, int divisor) {
    const double share = static_cast<double>(1.0f / static_cast<float>(divisor));
    double sum = 0, squares = 0;
    for (size_t i = 0; i < n; ++i) sum += static_cast<double>(x[i]);
    const float mean = static_cast<float>(sum * share);
    for (size_t i = 0; i < n; ++i) squares += std::pow(static_cast<double>(x[i] - mean), 2);
    const double variance =
        static_cast<double>(static_cast<float>(squares * share)) + static_cast<double>(0.001f);
    const float inverse = static_cast<float>(1 / std::sqrt(variance));
    Floats y(n);
    for (size_t i = 0; i < n; ++i) {
        y[i] = scale[i] * (x[i] - mean);
        y[i] *= inverse;
        y[i] += shift[i];
        if (slope != nullptr && !(y[i] > 0)) y[i] *= slope[i];
    }
    return y;
}

Floats rows_with_offset(size_t n, Feed kind) {
    Floats x = feed(n, kind);
    const float offset = from(0, 1) == 0 ? 0.0f : std::ldexp(1.0f, from(0, 20));
    if (kind == Feed::kNormal) {
        for (float& v : x) v += offset;
    }
    return x;
}

TEST(Normalisations, WholeArraysWithPaddingInTheSumsAlone) {
    for (const Feed kind : kFeeds) {
        for (const auto& [n, divisor] :
             {std::pair{528, 514}, {1984, 1984}, {8, 8}, {24, 20}, {40, 40}, {13, 11}, {1, 1}}) {
            const size_t count = static_cast<size_t>(n);
            const Floats x = rows_with_offset(count, kind), scale = normal(count), shift = normal(count);
            for (const int32_t level : levels()) {
                for (const bool in_place : {false, true}) {
                    Fenced<float> in(x), fenced_scale(scale), fenced_shift(shift), out(Floats(count, kNan));
                    table_of(level).nm0(in.data(), fenced_scale.data(), fenced_shift.data(),
                                        in_place ? in.data() : out.data(), static_cast<int16_t>(n),
                                        static_cast<int16_t>(divisor));
                    const Floats got = in_place ? in.values() : out.values();
                    expect_normalised(x.data(), got.data(), scale, shift, nullptr, count, divisor,
                                      "nm0, level " + std::to_string(level));
                    if (level == VQ_NS_LEVEL_GENERIC) {
                        ASSERT_EQ(got, normalised_exactly(x.data(), scale, shift, nullptr, count, divisor));
                    }
                }
            }
        }
    }
}

TEST(Normalisations, RowsEachByThemselvesThenRectified) {
    for (const Feed kind : kFeeds) {
        for (const auto& [rows, ch] :
             {std::pair{127, 32}, {63, 48}, {31, 64}, {1, 8}, {2, 16}, {35, 72}, {3, 7}, {5, 20}, {0, 8}}) {
            const size_t n = static_cast<size_t>(ch);
            Floats x = rows_with_offset(count_of(rows, ch), kind);
            if (rows > 1) std::fill_n(x.begin() + ch, ch, 3.7f); /* equal channels leave the shift alone */
            const Floats scale = normal(n), shift = normal(n), slope = normal(n);
            for (const int32_t level : levels()) {
                Fenced<float> in(x), fenced_scale(scale), fenced_shift(shift), fenced_slope(slope);
                table_of(level).nm1(in.data(), fenced_scale.data(), fenced_shift.data(), fenced_slope.data(),
                                    static_cast<int16_t>(rows), static_cast<int16_t>(ch));
                const Floats got = in.values();
                for (size_t r = 0; r < static_cast<size_t>(rows); ++r) {
                    expect_normalised(&x[r * n], &got[r * n], scale, shift, slope.data(), n, ch,
                                      "nm1, level " + std::to_string(level) + ", row " + std::to_string(r));
                    if (level == VQ_NS_LEVEL_GENERIC) {
                        ASSERT_EQ(Floats(&got[r * n], &got[r * n] + n),
                                  normalised_exactly(&x[r * n], scale, shift, slope.data(), n, ch));
                    }
                }
            }
        }
    }
}

TEST(Normalisations, NotANumberSpoilsItsRowAlone) {
    for (const int32_t level : levels()) {
        Floats x = normal(3 * 16);
        x[20] = kNan;
        const Floats ones(16, 1.0f);
        table_of(level).nm1(x.data(), ones.data(), ones.data(), ones.data(), 3, 16);
        for (size_t i = 0; i < x.size(); ++i) ASSERT_EQ(std::isnan(x[i]), i / 16 == 1) << level << " " << i;
    }
}

TEST(Normalisations, HugeValuesStayFinite) {
    for (const int32_t level : levels()) {
        Floats x = feed(64 * 4, Feed::kLarge, 1e16f), out(64 * 4);
        const Floats scale(256, 1.0f), shift(256, 0.5f);
        table_of(level).nm0(x.data(), scale.data(), shift.data(), out.data(), 256, 256);
        table_of(level).nm1(x.data(), scale.data(), shift.data(), scale.data(), 4, 64);
        for (size_t i = 0; i < 256; ++i) ASSERT_TRUE(std::isfinite(out[i]) && std::isfinite(x[i])) << level;
    }
}

/* ---- The engine at every level ---- */

/* The noisy recording of the golden vectors: its samples stand behind a header of 39 bytes, whose last eight
 * hold their number and another. */
std::vector<int16_t> recording() {
    std::ifstream stream(VQNS_SOURCE_DIR "/tests/data/golden.bin", std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    int32_t count = 0;
    if (file.size() > 39) std::memcpy(&count, file.data() + 31, sizeof count);
    std::vector<int16_t> samples(static_cast<size_t>(count));
    if (file.size() < 39 + 2 * samples.size()) return {};
    std::memcpy(samples.data(), file.data() + 39, 2 * samples.size());
    return samples;
}

Floats enhance(const std::vector<int16_t>& input, int32_t level) {
    const auto ns = std::make_unique<vq_ns_data>();
    vq_ns_reset(ns.get(), 16000, 16000);
    fill_kernel_table(&ns->kernels, level);
    vq_ns_fft_init(ns->fft_pointer, 512, level);
    Floats output, hop(160);
    for (size_t at = 0; at + 160 <= input.size(); at += 160) {
        const int32_t count = vq_ns_dpcrn_proc(ns.get(), &input[at], hop.data(), 160);
        output.insert(output.end(), hop.begin(), hop.begin() + count);
    }
    return output;
}

TEST(Levels, AgreeOnRealSpeech) {
    const std::vector<int16_t> input = recording();
    ASSERT_GT(input.size(), 16000u);
    const Floats reference = enhance(input, levels().back());
    for (const int32_t level : levels()) {
        if (level == levels().back()) break;
        const Floats output = enhance(input, level);
        ASSERT_EQ(output.size(), reference.size());
        double signal = 0, difference = 1e-30;
        for (size_t i = 0; i < output.size(); ++i) {
            const double want = static_cast<double>(reference[i]),
                         error = static_cast<double>(output[i]) - want;
            signal += want * want;
            difference += error * error;
        }
        const double ratio = 10 * std::log10(signal / difference);
        std::printf("level %d against level %d: %.1f dB over %zu samples\n", level, levels().back(), ratio,
                    output.size());
        EXPECT_GT(ratio, level == VQ_NS_LEVEL_GENERIC ? 100 : 110);
    }
}

/* ---- What the compiler made of it ---- */

#if defined(VQNS_STATIC_LIBRARY)
TEST(ObjectFiles, HoldNoInstructionAboveTheirLevelAndShareNoFunction) {
    std::map<std::string, bool> has_avx2; /* by member of the archive */
    std::string member;
    std::istringstream code(output_of("objdump -d --no-show-raw-insn --no-addresses " VQNS_STATIC_LIBRARY));
    for (std::string line; std::getline(code, line);) {
        if (const size_t end = line.find(":     file format"); end != std::string::npos) {
            member = line.substr(0, end);
            has_avx2[member] = false;
        }
        if (line.empty() || line[0] != '\t') continue;
        const std::string operation = line.substr(1, line.find_first_of(" \t", 1) - 1);
        const auto is = [&](const char* beginning) { return operation.rfind(beginning, 0) == 0; };
        /* Fused operations, integers on the wide registers, broadcasts from a register. */
        const bool wide = line.find("%ymm") != std::string::npos;
        const bool integer = wide && ((is("vp") && !is("vpermil") && !is("vperm2f128") && !is("vptest")) ||
                                      operation.find("i128") != std::string::npos);
        const bool from_register = is("vbroadcasts") && line.find('(') == std::string::npos;
        if (is("vfm") || is("vfnm") || integer || from_register) has_avx2[member] = true;
    }
    ASSERT_GT(has_avx2.size(), 30u);
    EXPECT_TRUE(has_avx2["kernels_avx2.cpp.o"]) << "the scan must see what it looks for";
    for (const auto& [name, found] : has_avx2) {
        EXPECT_TRUE(!found || name.find("_avx2.") != std::string::npos) << name;
    }
    /* A weak function of one level could stand in for its namesake of another. */
    EXPECT_EQ(output_of("nm --defined-only " VQNS_STATIC_LIBRARY
                        " | awk '/:$/ {member = $1} $2 ~ /[WVu]/ {print member, $3}' | grep _avx"),
              "");
}
#endif

}  // namespace
