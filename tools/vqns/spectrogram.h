// spectrogram.h - power over time and frequency of sound of any length, in bounded memory.
#ifndef VQNS_SPECTROGRAM_H
#define VQNS_SPECTROGRAM_H

#include <complex>
#include <cstdint>
#include <vector>

namespace vqns_tool {

// Short-time Fourier transform with a periodic Hann window of about 30 ms and a step of 4 ms. Powers are
// averaged over channels. When the columns run out, each two neighbours become one.
struct Spectrogram {
    int rate = 0, channels = 0;
    size_t size = 0;  // points of the transform
    size_t step = 0;  // samples
    std::vector<double> window;
    std::vector<std::complex<double>> turns;   // e^(-2 pi i k / size)
    std::vector<std::complex<double>> work;    // size
    std::vector<std::vector<double>> waiting;  // a channel each: samples of the next frames
    std::vector<std::vector<float>> columns;   // sums of power, size / 2 + 1 bins
    std::vector<int64_t> frames_in;            // frames summed in a column
    int64_t frames_per_column = 1;
    int64_t samples = 0;  // a channel
};

void open_spectrogram(Spectrogram& s, int rate, int channels);
void add_sound(Spectrogram& s, const int16_t* interleaved, int64_t frames);
void end_sound(Spectrogram& s);  // completes the last columns

// Mean power at a time in seconds and a frequency in Hz, over a stretch of both, relative to a sine at full
// scale.
struct Stretch {
    double time, duration, frequency, bandwidth;
};
double power_at(const Spectrogram& s, const Stretch& stretch);

}  // namespace vqns_tool

#endif
