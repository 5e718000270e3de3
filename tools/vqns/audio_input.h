// audio_input.h - a sound file, or raw PCM on standard input, as interleaved 16-bit frames.
#ifndef VQNS_AUDIO_INPUT_H
#define VQNS_AUDIO_INPUT_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vqns_tool {

// Signed 16-bit little-endian samples, interleaved. 0: not given.
struct RawFormat {
    int rate = 0, channels = 0;
};

struct CloseSound {
    void operator()(SNDFILE* file) const {
        sf_close(file);
    }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSound>;

struct AudioInput {
    std::string name;  // for messages
    int rate = 0, channels = 0;
    int format = 0;       // SF_FORMAT_..., 0 for raw PCM
    int64_t frames = -1;  // -1: not known beforehand
    int64_t frames_read = 0;
    bool accept_truncated = false;
    bool damaged = false;  // and accepted
    SoundFile file;
    std::vector<float> samples;      // of a file block
    std::vector<unsigned char> raw;  // read, but less than a frame
    bool ragged = false;             // raw input ended within a frame
};

// `path` is a file, or "-". Throws Failure; for a file that is cut short only where that is not accepted.
AudioInput open_input(const std::string& path, const RawFormat& raw, bool accept_truncated);

// Reads up to `frames`. Returns 0 at the end. From standard input, returns with what there is.
int64_t read_frames(AudioInput& input, int16_t* out, int64_t frames);

// After the last frame has been used: throws Failure if raw input ended within a frame.
void check_end(const AudioInput& input);

double seconds_read(const AudioInput& input);

}  // namespace vqns_tool

#endif
