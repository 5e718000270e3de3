// audio_output.h - interleaved 16-bit frames to a sound file, or as raw PCM to standard output.
#ifndef VQNS_AUDIO_OUTPUT_H
#define VQNS_AUDIO_OUTPUT_H

#include "audio_input.h"
#include "replace_file.h"

namespace vqns_tool {

struct AudioOutput {
    std::string name;
    int rate = 0, channels = 0;
    int format = 0;         // SF_FORMAT_..., 0 for raw PCM
    int64_t frames = 0;     // written to a file
    ReplacedFile replaced;  // outlives `file`
    SoundFile file;
    int raw_descriptor = -1;  // of raw PCM; not closed
    std::vector<unsigned char> raw;
    std::vector<int16_t> rounded;
    std::vector<float> floats;
};

// Opens the output for frames at `rate`, before anything else is done with standard output: for "-" the
// audio gets a descriptor of its own, and what is printed on standard output from then on goes to standard
// error. A file gets the container that its name asks for, by default the input's, and the input's sample
// format where the container can hold it; texts such as title and artist are copied. Throws Failure.
void open_output(AudioOutput& output, const std::string& path, const AudioInput& input, int rate);

// Opens a file in the format that `info` says on a descriptor, which the output takes over. `name` is for
// messages.
void open_output(AudioOutput& output, const std::string& name, int descriptor, SF_INFO info);

// Whether a file of `info`'s format holds its rate and channels.
bool can_write(SF_INFO info);

// Writes all frames, to standard output without delay.
void write_frames(AudioOutput& output, const int16_t* frames, int64_t count);

// Completes a file under its temporary name; `commit(output.replaced)` then puts it in place.
void close_output(AudioOutput& output);

}  // namespace vqns_tool

#endif
