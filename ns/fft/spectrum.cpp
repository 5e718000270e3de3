#include "vq_ns_fft.h"

namespace {

enum { kPoints = 256, kStages = 8 };

/* Cosine and sine of 2 pi / 512, the step of the rotation that untangles the packed halves. */
constexpr float kStepCos = 0.9999247f;
constexpr float kStepSin = 0.012271538f;

void transform(const vq_ns_fft_data& fft, float* re, float* im) {
    vq_ns_fft_comp(&fft, re, im, kStages);
    vq_ns_fft_bitrev(re, fft.seeds, kStages);
    vq_ns_fft_bitrev(im, fft.seeds, kStages);
}

/* Between the 256-point transform of the packed frame and the bins of the real one, in either direction. The
 * twiddle (wr, wi) comes from a recurrence in single precision, whose rounding belongs to the result. */
void untangle(float* re, float* im, float wr, float step_sin) {
    float wi = 0.0f;
    for (int k = 1; k <= kPoints / 2; ++k) {
        const int j = kPoints - k;
        const float previous = wr;
        wr = previous * kStepCos - wi * step_sin;
        wi = previous * step_sin + wi * kStepCos;
        const float h1r = 0.5f * (re[k] + re[j]);
        const float h1i = 0.5f * (im[k] - im[j]);
        const float h2r = 0.5f * (im[k] + im[j]);
        const float h2i = -0.5f * (re[k] - re[j]);
        re[k] = h1r + (wr * h2r - wi * h2i);
        im[k] = h1i + (wr * h2i + wi * h2r);
        if (j != k) {
            re[j] = h1r - wr * h2r + wi * h2i;
            im[j] = -h1i + (wr * h2i + wi * h2r);
        }
    }
    const float a = re[0], b = im[0];
    re[0] = a + b;
    re[kPoints] = a - b;
    im[0] = 0.0f;
    im[kPoints] = 0.0f;
}

void synthesise(const vq_ns_fft_data& fft, float* time, float* re, float* im) {
    untangle(re, im, -1.0f, kStepSin);
    re[0] *= 0.5f;
    im[0] *= 0.5f;
    /* A forward transform between two exchanges of the planes is an inverse one. */
    fft.proc1(re, im, kPoints);
    transform(fft, re, im);
    for (int k = kPoints - 1; k >= 0; --k) {
        time[2 * k] = im[k];
        time[2 * k + 1] = re[k];
    }
    fft.proc2(time, 2 * kPoints);
}

}  // namespace

int32_t vq_ns_fft_process(const vq_ns_fft_data* fft, float* time, bool forward, float* re, float* im) {
    if (fft->n != kPoints) return -1;
    for (int k = 0; k < kPoints; ++k) {
        re[k] = time[2 * k];
        im[k] = time[2 * k + 1];
    }
    if (forward) {
        transform(*fft, re, im);
        untangle(re, im, 1.0f, -kStepSin);
    } else {
        synthesise(*fft, time, re, im);
    }
    return 0;
}

int32_t vq_ns_ifft_process(const vq_ns_fft_data* fft, float* time, bool forward, float* re, float* im) {
    return vq_ns_fft_process(fft, time, forward, re, im);
}
