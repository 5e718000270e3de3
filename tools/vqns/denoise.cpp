#include <chrono>
#include <optional>

#include "audio_output.h"
#include "commands.h"
#include "failure.h"
#include "progress.h"
#include "spectrogram.h"
#include "spectrogram_picture.h"

namespace vqns_tool {
namespace {

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

}  // namespace

void denoise(const DenoiseOptions& options) {
    refuse_overwriting(options);
    Denoising denoising;
    open_denoising(denoising, options);
    denoising.constant_delay = options.constant_delay;
    const AudioInput& input = denoising.input;

    std::optional<Pictures> pictures;
    if (!options.spectrogram.empty()) {
        pictures.emplace();
        open_spectrogram(pictures->before, input.rate, input.channels);
        open_spectrogram(pictures->after, input.rate, input.channels);
        open_replaced(pictures->file, options.spectrogram);
    }
    AudioOutput output;
    open_output(output, options.out, input, input.rate);
    if (pictures) {
        denoising.before = [&](const int16_t* frames, int64_t count) {
            analyse(*pictures, pictures->before, frames, count);
        };
    }
    denoising.after = [&](const int16_t* frames, int64_t count) {
        if (pictures) analyse(*pictures, pictures->after, frames, count);
        write_frames(output, frames, count);
    };

    const auto start = std::chrono::steady_clock::now();
    run_denoising(denoising, options.quiet);
    close_output(output);
    const double elapsed = seconds_since(start) - (pictures ? pictures->seconds : 0);
    if (pictures) write_picture(pictures->file, pictures->before, pictures->after);
    check_end(input);
    commit(output.replaced);
    if (pictures) commit(pictures->file);
    if (options.quiet) return;
    summarise(denoising, options.out == "-" ? "standard output" : options.out, elapsed);
}

}  // namespace vqns_tool
