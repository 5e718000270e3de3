#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>

#include "audio_output.h"
#include "commands.h"
#include "failure.h"
#include "level_meter.h"
#include "progress.h"
#include "spectrogram.h"
#include "spectrogram_picture.h"

namespace vqns_tool {
namespace {

enum { kBlock = 4096 };  // frames

// Before and after, if a picture is asked for.
struct Pictures {
    Spectrogram before, after;
    ReplacedFile file;
    double seconds = 0;  // spent on them, which is no part of denoising
};

void analyse(Pictures& pictures, Spectrogram& s, const int16_t* frames, int64_t count) {
    const auto start = std::chrono::steady_clock::now();
    add_sound(s, frames, count);
    pictures.seconds += seconds_since(start);
}

void refuse_overwriting(const DenoiseOptions& options) {
    if (options.in != "-" && options.out != "-" && same_file(options.in, options.out)) {
        fail(options.out, "is the input");
    }
    if (options.spectrogram.empty()) return;
    for (const std::string& other : {options.in, options.out}) {
        if (other != "-" && same_file(other, options.spectrogram)) {
            fail(options.spectrogram, "is the input or the output");
        }
    }
}

// Passes on what comes out, less the frames ahead of the first that belongs to the input.
struct AlignedWriter {
    AudioOutput& output;
    int channels;
    int64_t ahead;  // still to be left out
    std::optional<Pictures>& pictures;

    void write(const int16_t* frames, int64_t count) {
        const int64_t dropped = std::min(ahead, count);
        ahead -= dropped;
        frames += dropped * channels;
        count -= dropped;
        if (count < 1) return;
        if (pictures) analyse(*pictures, pictures->after, frames, count);
        write_frames(output, frames, count);
    }
};

void flush(vqns_stream::Channels& streams, AlignedWriter& writer, int64_t frames,
           std::vector<int16_t>& block) {
    while (frames > 0) {
        const int64_t count = std::min<int64_t>(frames, kBlock);
        std::fill(block.begin(), block.end(), int16_t{0});
        process(streams, block.data(), count);
        writer.write(block.data(), count);
        frames -= count;
    }
}

void summarise(const DenoiseOptions& options, const AudioInput& input, const LevelMeter& meter,
               double elapsed) {
    const double duration = seconds_read(input);
    const auto hops = static_cast<double>(std::max<int64_t>(meter.speech.hops + meter.pauses.hops, 1));
    std::fprintf(stderr,
                 "%s -> %s\n"
                 "  duration       %.2f s, %d Hz, %d channel%s\n"
                 "  time taken     %.2f s, real-time factor %.3f\n"
                 "  speech         %s; %.0f %% of the time\n"
                 "  speech pauses  %s\n"
                 "  (rms of 10 ms pieces at 16 kHz, the same pieces before and after, sorted by the voice\n"
                 "  detector on the denoised signal; 0 dBFS is full scale)\n",
                 input.name.c_str(), options.out == "-" ? "standard output" : options.out.c_str(), duration,
                 input.rate, input.channels, input.channels == 1 ? "" : "s", elapsed, elapsed / duration,
                 describe(meter.speech).c_str(), 100 * static_cast<double>(meter.speech.hops) / hops,
                 describe(meter.pauses).c_str());
}

}  // namespace

void denoise(const DenoiseOptions& options) {
    refuse_overwriting(options);
    AudioInput input = open_input(options.in, options.raw, options.accept_truncated);
    LevelMeter meter;
    vqns_stream::Options stream_options;
    stream_options.attenuation_limit = options.attenuation_limit;
    stream_options.level = options.level;
    stream_options.context = &meter;
    stream_options.observer = [](void* context, const vqns_stream::Hop& hop) {
        meter_hop(*static_cast<LevelMeter*>(context), hop);
    };
    vqns_stream::Channels streams = open_channels(input.name, input.rate, input.channels, stream_options);

    std::optional<Pictures> pictures;
    if (!options.spectrogram.empty()) {
        pictures.emplace();
        open_spectrogram(pictures->before, input.rate, input.channels);
        open_spectrogram(pictures->after, input.rate, input.channels);
        open_replaced(pictures->file, options.spectrogram);
    }
    AudioOutput output;
    open_output(output, options.out, input, input.rate);

    const int64_t late = latency(streams);
    AlignedWriter writer = {output, input.channels, options.constant_delay ? 0 : late, pictures};
    std::vector<int16_t> block(static_cast<size_t>(kBlock) * static_cast<size_t>(input.channels));
    Progress progress(input.frames, options.quiet);
    for (int64_t count; (count = read_frames(input, block.data(), kBlock)) > 0;) {
        if (pictures) analyse(*pictures, pictures->before, block.data(), count);
        process(streams, block.data(), count);
        writer.write(block.data(), count);
        show_progress(progress, input.frames_read);
    }
    meter.end = seconds_read(input);
    if (!options.constant_delay) flush(streams, writer, late, block);
    close_output(output);
    const double elapsed = seconds_since(progress.start) - (pictures ? pictures->seconds : 0);
    if (pictures) write_picture(pictures->file, pictures->before, pictures->after);
    check_end(input);
    commit(output.replaced);
    if (pictures) commit(pictures->file);
    if (!options.quiet) summarise(options, input, meter, elapsed);
}

}  // namespace vqns_tool
