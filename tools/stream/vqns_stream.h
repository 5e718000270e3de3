// vqns_stream.h - noise suppression for one mono stream at any rate, in blocks of any size.
//
//     vqns_stream::Stream* s = vqns_stream::open(48000, {});
//     report_latency_to_host(vqns_stream::latency(s));
//     for each block:
//         vqns_stream::process(s, in, out, count);
//     vqns_stream::close(s);
//
// As many samples come out as go in. The first latency(s) of them are silence; from then on out[i] belongs to
// in[i - latency(s)] for the life of the stream, exactly or to a hundredth of a sample at the rates in use
// for audio (at worst to half a sample, at 16012 Hz and the like). The result does not depend on how the
// stream is cut into blocks.
//
// Inside, the stream is converted to 16 kHz, enhanced in hops of 10 ms, mixed and levelled as asked, and
// converted back: what lies above 8 kHz (or half the stream's rate) is not in the output, unless the stream
// is bypassed.
//
// Threads: one thread at a time for a stream. open may be called on any thread. process and the setters
// neither allocate nor lock.
#ifndef VQNS_STREAM_H
#define VQNS_STREAM_H

#include <cstdint>
#include <limits>

namespace vqns_stream {

enum { kLowestRate = 8000, kHighestRate = 192000 };

constexpr double kHopSeconds = 0.01;

// Ten milliseconds on their way out, at 16 kHz, 160 samples each. `before` and `after` lie sample on sample.
struct Hop {
    double time;            // of the first sample, in seconds of the stream's input; may lie before 0
    int channel;            // Options::channel
    bool speech;            // as the detector judges the denoised hop, before mixing and levelling
    const int16_t* before;  // as it came in
    const int16_t* after;   // as it goes out
};
using HopObserver = void (*)(void* context, const Hop& hop);

struct Options {
    // How far the suppressor may turn noise down, in dB, by leaving that much of the input in: 0 passes
    // the input, infinity the denoised signal alone.
    double attenuation_limit = std::numeric_limits<double>::infinity();
    bool level = true;               // bring speech to an even level
    int detector_mode = 2;           // of Hop::speech: 0 misses least speech .. 3 lets least noise through
    bool bypass = false;             // see set_bypass
    int channel = 0;                 // anything that tells streams with one context apart
    HopObserver observer = nullptr;  // called within process for each hop; must not throw
    void* context = nullptr;         // handed to the observer
};

struct Stream;

// Throws std::runtime_error for a rate outside kLowestRate..kHighestRate or another invalid option, and
// std::bad_alloc.
Stream* open(int rate, const Options& options);
void close(Stream* stream);  // null is allowed

// In samples at the stream's rate.
int64_t latency(const Stream* stream);

// out may be in. A count below 1 does nothing. In floating point full scale is 1; unless
// bypassed, what lies beyond is clipped, and not-a-number is silence.
void process(Stream* stream, const int16_t* in, int16_t* out, int64_t count);
void process(Stream* stream, const float* in, float* out, int64_t count);

// From the next hop on, across which they come in gradually. A limit that is negative or not a number throws
// std::runtime_error and changes nothing.
void set_attenuation_limit(Stream* stream, double limit);
void set_level(Stream* stream, bool level);

// Bypassed, a stream gives its input back, sample for sample and at its full bandwidth, as late as ever.
// Going there and back takes a cross-fade of 10 ms. The suppressor goes on listening, so that it returns in
// its stride.
void set_bypass(Stream* stream, bool bypass);

}  // namespace vqns_stream

#endif
