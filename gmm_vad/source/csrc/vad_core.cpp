#include "vad_core.h"

#include <string.h>

#include <algorithm>
#include <bit>

#include "signal_processing_library.h"
#include "spl_require.h"
#include "spl_wrap.h"
#include "vad_core_tables.h"
#include "vad_filterbank.h"
#include "vad_sp.h"

namespace {

constexpr int channels = 6;
constexpr int gaussians = 2;
constexpr int table_size = channels * gaussians;
constexpr size_t longest_frame = 240;  // at 8 kHz
constexpr int32_t initialised = 42;
constexpr int16_t silence = 10;
constexpr int32_t one_q14 = 1 << 14;
constexpr int16_t smallest_std = 384;  // Q7
constexpr int16_t long_run = 6;        // speech frames

struct thresholds {
    const int16_t* hang_short;
    const int16_t* hang_long;
    const int16_t* local;
    const int16_t* global;
};

constexpr thresholds modes[] = {
    {kOverHangMax1Q, kOverHangMax2Q, kLocalThresholdQ, kGlobalThresholdQ},
    {kOverHangMax1LBR, kOverHangMax2LBR, kLocalThresholdLBR, kGlobalThresholdLBR},
    {kOverHangMax1AGG, kOverHangMax2AGG, kLocalThresholdAGG, kGlobalThresholdAGG},
    {kOverHangMax1VAG, kOverHangMax2VAG, kLocalThresholdVAG, kGlobalThresholdVAG},
};

// What a frame says about one class of the model.
struct evidence {
    int16_t delta[table_size];           // (x - m) / s^2, Q11
    int16_t responsibility[table_size];  // of each Gaussian for the frame, Q14
};

// Likelihood of one class in one channel, Q27. p[g]: that of its Gaussians.
int32_t likelihood(int ch, int16_t feature, const int16_t* weights, const int16_t* means, const int16_t* stds,
                   int16_t* delta, int32_t p[gaussians]) {
    for (int g = 0; g < gaussians; g++) {
        const int k = g * channels + ch;
        p[g] = wrap_mul(weights[k], TarvikGmmVad_GaussianProbability(feature, means[k], stds[k], &delta[k]));
    }
    return wrap_add(p[0], p[1]);
}

// Leading sign bits less one: 30 less the integer part of log2.
int normalisation(int32_t x) {
    if (x == 0) return 31;
    return std::countl_zero(static_cast<uint32_t>(x < 0 ? ~x : x)) - 1;
}

// Shares of the two Gaussians in the likelihood; false if that is too small to divide by.
bool share(int ch, int32_t first, int32_t sum, int16_t* responsibility) {
    if (sum >> 12 < 1) return false;
    const int32_t num = static_cast<int32_t>((static_cast<uint32_t>(first) << 2) & 0xFFFFC000U);
    responsibility[ch] = low16(TarvikSpl_DivW32W16(num, low16(sum >> 12)));
    responsibility[ch + channels] = low16(one_q14 - responsibility[ch]);
    return true;
}

// Weighted mean of a channel's Gaussians, Q14.
int32_t weighted_mean(int ch, const int16_t* means, const int16_t* weights) {
    return means[ch] * weights[ch] + means[ch + channels] * weights[ch + channels];
}

void shift_means(int ch, int16_t* means, int32_t step) {
    means[ch] = low16(means[ch] + step);
    means[ch + channels] = low16(means[ch + channels] + step);
}

// Truncates toward zero for either sign; a divisor of 0 gives the largest number of the sign of v.
int32_t divide_symmetric(int32_t v, int16_t den) {
    return v > 0 ? TarvikSpl_DivW32W16(v, den) : wrap_neg(TarvikSpl_DivW32W16(wrap_neg(v), den));
}

int16_t floor_std(int32_t std_deviation) {
    return low16(std::max<int32_t>(smallest_std, std_deviation));
}

// (delta * t - 1) * responsibility, the direction in which the deviation grows the likelihood. The product
// wraps.
int32_t deviation_gradient(int16_t delta, int16_t t, int32_t quarter_responsibility) {
    return wrap_mul(quarter_responsibility, ((delta * t) >> 3) - 4096);
}

void update_speech(VadInstT* self, int k, int16_t feature, int32_t lowest, int32_t highest,
                   const evidence& e) {
    const int16_t old_mean = self->speech_mean[k];
    const int16_t std_deviation = self->speech_std[k];

    const int32_t gradient = low16((e.responsibility[k] * e.delta[k]) >> 11);
    const int32_t mean = old_mean + (((gradient * 6554 >> 21) + 1) >> 1);
    self->speech_mean[k] = low16(std::min(highest, std::max(lowest, mean)));

    const int16_t t = low16(feature - ((old_mean + 4) >> 3));
    const int32_t v = deviation_gradient(e.delta[k], t, e.responsibility[k] >> 2) >> 4;
    const int32_t q = divide_symmetric(v, low16(std_deviation * 10));
    self->speech_std[k] = floor_std(std_deviation + (low16(wrap_add(q, 128)) >> 8));
}

// A noise mean follows the tracked minimum always, and the frame only when that is noise.
void update_noise_mean(VadInstT* self, int g, int ch, int32_t step) {
    const int k = g * channels + ch;
    const int32_t lowest = 640 + 128 * g;
    const int32_t highest = 9216 - 128 * ch + 128 * g;
    self->noise_mean[k] = low16(std::clamp<int32_t>(low16(self->noise_mean[k] + step), lowest, highest));
}

void update_noise_std(VadInstT* self, int k, int16_t old_mean, int16_t feature, const evidence& e) {
    const int16_t std_deviation = self->noise_std[k];
    const int16_t t = low16(feature - (old_mean >> 3));
    const int32_t v = deviation_gradient(e.delta[k], t, (e.responsibility[k] + 2) >> 2) >> 14;
    const int32_t q = divide_symmetric(v, std_deviation);
    self->noise_std[k] = floor_std(std_deviation + (low16(wrap_add(q, 32)) >> 6));
}

// Keeps the classes apart and each below its ceiling.
void separate(VadInstT* self, int ch) {
    int32_t noise = weighted_mean(ch, self->noise_mean, kNoiseDataWeights);
    int32_t speech = weighted_mean(ch, self->speech_mean, kSpeechDataWeights);

    const int32_t difference = (speech >> 9) - (noise >> 9);
    if (low16(difference) < kMinimumDifference[ch]) {
        const int32_t missing = low16(kMinimumDifference[ch] - difference);
        shift_means(ch, self->speech_mean, (missing * 13) >> 2);
        shift_means(ch, self->noise_mean, -((missing * 3) >> 2));
        noise = weighted_mean(ch, self->noise_mean, kNoiseDataWeights);
        speech = weighted_mean(ch, self->speech_mean, kSpeechDataWeights);
    }

    const int32_t speech_excess = (speech >> 7) - kMaximumSpeech[ch];
    if (speech_excess > 0) shift_means(ch, self->speech_mean, -speech_excess);
    const int32_t noise_excess = (noise >> 7) - kMaximumNoise[ch];
    if (noise_excess > 0) shift_means(ch, self->noise_mean, -noise_excess);
}

void update_models(VadInstT* self, const int16_t* features, bool speech_frame, const evidence& noise,
                   const evidence& speech) {
    int32_t highest_speech = 12800;
    for (int ch = 0; ch < channels; ch++) {
        const int16_t feature = features[ch];
        const int16_t minimum = TarvikGmmVad_FindMinimum(self, feature, ch);
        const int32_t noise_q8 = weighted_mean(ch, self->noise_mean, kNoiseDataWeights) >> 6;
        const int32_t pull = low16(minimum * 16 - noise_q8) * 154 >> 9;

        for (int g = 0; g < gaussians; g++) {
            const int k = g * channels + ch;
            if (speech_frame) {
                update_noise_mean(self, g, ch, pull);
                update_speech(self, k, feature, kMinimumMean[g], highest_speech + 640, speech);
            } else {
                const int16_t old_mean = self->noise_mean[k];
                const int32_t gradient = low16((noise.responsibility[k] * noise.delta[k]) >> 11);
                update_noise_mean(self, g, ch, (gradient * 655 >> 22) + pull);
                update_noise_std(self, k, old_mean, feature, noise);
            }
        }

        separate(self, ch);
        highest_speech = kMaximumSpeech[ch];  // bounds the next channel
    }
    if (self->frame_count < INT32_MAX) self->frame_count++;
}

bool is_speech(VadInstT* self, const int16_t* features, int duration) {
    evidence noise = {};
    evidence speech = {};
    int32_t weighted_sum = 0;
    bool speech_frame = false;

    for (int ch = 0; ch < channels; ch++) {
        int32_t pn[gaussians];
        int32_t ps[gaussians];
        const int32_t h0 = likelihood(ch, features[ch], kNoiseDataWeights, self->noise_mean, self->noise_std,
                                      noise.delta, pn);
        const int32_t h1 = likelihood(ch, features[ch], kSpeechDataWeights, self->speech_mean,
                                      self->speech_std, speech.delta, ps);

        const int32_t log_ratio = normalisation(h0) - normalisation(h1);
        weighted_sum += log_ratio * kSpectrumWeight[ch];
        if (log_ratio * 4 > self->local_threshold[duration]) speech_frame = true;

        // A frame far from both noise Gaussians is the first one's; one far from speech teaches speech
        // nothing.
        if (!share(ch, pn[0], h0, noise.responsibility)) noise.responsibility[ch] = one_q14;
        share(ch, ps[0], h1, speech.responsibility);
    }

    if (weighted_sum >= self->global_threshold[duration]) speech_frame = true;
    update_models(self, features, speech_frame, noise, speech);
    return speech_frame;
}

int32_t hang_over(VadInstT* self, bool speech_frame, int duration) {
    if (speech_frame) {
        if (self->speech_run < long_run) {
            self->speech_run++;
            self->hangover = self->hang_short[duration];
        } else {
            self->speech_run = long_run;
            self->hangover = self->hang_long[duration];
        }
        self->decision = 1;
    } else {
        self->speech_run = 0;
        self->decision = 0;
        if (self->hangover > 0) self->decision = 2 + self->hangover--;
    }
    return self->decision;
}

// The arrays of the conversion to 8 kHz hold 30 ms: more stops the program, as it does at 8 kHz.
void require_fit(size_t length, size_t ratio, const char* function) {
    require(length <= ratio * longest_frame, "(data_length) <= (240)", "../../gmm_vad/source/csrc/vad_core",
            function);
}

}  // namespace

int32_t TarvikGmmVad_GaussianProbability(int16_t input, int16_t mean, int16_t std_deviation, int16_t* delta) {
    // 1 / s, Q10
    const int16_t inverse = low16(TarvikSpl_DivW32W16((std_deviation >> 1) + 131072, std_deviation));
    const int16_t inverse_square = low16(((inverse >> 2) * (inverse >> 2)) >> 2);  // 1 / s^2, Q14
    const int16_t distance = low16(input * 8 - mean);                              // x - m, Q7
    *delta = low16((inverse_square * distance) >> 10);                             // Q11

    // Far beyond where the probability has become zero; keeps the shift below in range.
    const int32_t exponent = *delta * distance;  // (x - m)^2 / s^2, Q18
    if (exponent > 11266559) return 0;

    // 2^-y, the fraction taken linearly.
    const int32_t y = wrap_mul(exponent >> 9, 5909) >> 12;  // (x - m)^2 / (2 s^2 ln 2), Q10
    const int32_t fraction = (wrap_neg(y) & 0x3FF) | 0x400;
    const int shift = (low16(wrap_sub(y, 1)) >> 10) + 1;
    // Out of range only after a delta that wrapped: everything is shifted out.
    if (shift < 0 || shift > 31) return 0;
    return (fraction >> shift) * inverse;
}

int32_t TarvikGmmVad_set_mode_core(VadInstT* instance, int32_t mode) {
    if (mode < 0 || mode > 3) return -1;
    const thresholds& t = modes[mode];
    memcpy(instance->hang_short, t.hang_short, sizeof instance->hang_short);
    memcpy(instance->hang_long, t.hang_long, sizeof instance->hang_long);
    memcpy(instance->local_threshold, t.local, sizeof instance->local_threshold);
    memcpy(instance->global_threshold, t.global, sizeof instance->global_threshold);
    return 0;
}

int32_t TarvikGmmVad_InitCore(VadInstT* instance) {
    if (instance == nullptr) return -1;
    *instance = {};
    instance->decision = 1;
    memcpy(instance->noise_mean, kNoiseDataMeans, sizeof instance->noise_mean);
    memcpy(instance->speech_mean, kSpeechDataMeans, sizeof instance->speech_mean);
    memcpy(instance->noise_std, kNoiseDataStds, sizeof instance->noise_std);
    memcpy(instance->speech_std, kSpeechDataStds, sizeof instance->speech_std);
    std::fill_n(instance->min_values, 96, int16_t{10000});
    std::fill_n(instance->min_mean, channels, int16_t{1600});
    TarvikGmmVad_set_mode_core(instance, 0);
    instance->init_flag = initialised;
    return 0;
}

int32_t TarvikGmmVad_CalcVad8khz(VadInstT* instance, const int16_t* frame, size_t length) {
    int16_t features[channels];
    const int16_t energy = TarvikGmmVad_CalculateFeatures(instance, frame, length, features);
    const int duration = length == 80 ? 0 : length == 160 ? 1 : 2;
    const bool speech = energy > silence && is_speech(instance, features, duration);
    return hang_over(instance, speech, duration);
}

int32_t TarvikGmmVad_CalcVad16khz(VadInstT* instance, const int16_t* frame, size_t length) {
    require_fit(length, 2, "int32_t TarvikGmmVad_CalcVad16khz(VadInstT*, const int16_t*, size_t)");
    int16_t at_8k[longest_frame];
    TarvikGmmVad_Downsampling(frame, at_8k, instance->down_state, length);
    return TarvikGmmVad_CalcVad8khz(instance, at_8k, length / 2);
}

int32_t TarvikGmmVad_CalcVad32khz(VadInstT* instance, const int16_t* frame, size_t length) {
    require_fit(length, 4, "int32_t TarvikGmmVad_CalcVad32khz(VadInstT*, const int16_t*, size_t)");
    int16_t at_16k[2 * longest_frame];
    int16_t at_8k[longest_frame];
    TarvikGmmVad_Downsampling(frame, at_16k, instance->down_state + 2, length);
    TarvikGmmVad_Downsampling(at_16k, at_8k, instance->down_state, length / 2);
    return TarvikGmmVad_CalcVad8khz(instance, at_8k, length / 4);
}

int32_t TarvikGmmVad_CalcVad48khz(VadInstT* instance, const int16_t* frame, size_t length) {
    require_fit(length, 6, "int32_t TarvikGmmVad_CalcVad48khz(VadInstT*, const int16_t*, size_t)");
    int16_t at_8k[longest_frame] = {};
    int32_t scratch[496] = {};
    for (size_t block = 0; block < length / 480; block++) {
        // Every block reads the frame's first 10 ms: longer frames are judged by their beginning alone.
        TarvikSpl_Resample48khzTo8khz(frame, at_8k + 80 * block, instance->resample_state, scratch);
    }
    return TarvikGmmVad_CalcVad8khz(instance, at_8k, length / 6);
}
