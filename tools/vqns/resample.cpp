#include <stdexcept>

#include "audio_output.h"
#include "commands.h"
#include "failure.h"
#include "progress.h"
#include "resampler.h"

namespace vqns_tool {
namespace {

vqns_stream::Resampler open_resampler(const AudioInput& input, int rate) {
    try {
        return vqns_stream::open_resampler(input.rate, rate, input.channels);
    } catch (const std::runtime_error& error) {
        fail(input.name, error.what());
    }
}

}  // namespace

void resample(const ResampleOptions& options) {
    if (options.in != "-" && options.out != "-" && same_file(options.in, options.out)) {
        fail(options.out, "is the input");
    }
    AudioInput input = open_input(options.in, options.raw, options.accept_truncated);
    vqns_stream::Resampler resampler = open_resampler(input, options.rate);
    AudioOutput output;
    open_output(output, options.out, input, options.rate);

    enum { kBlock = 4096 };  // frames
    std::vector<int16_t> block(kBlock * static_cast<size_t>(input.channels)), converted;
    const auto write_converted = [&] {
        const auto frames = static_cast<int64_t>(converted.size()) / input.channels;
        if (frames > 0) write_frames(output, converted.data(), frames);
        converted.clear();
    };
    {
        Progress progress(input.frames, options.quiet);
        for (int64_t count; (count = read_frames(input, block.data(), kBlock)) > 0;) {
            vqns_stream::resample(resampler, block.data(), count, converted);
            write_converted();
            show_progress(progress, input.frames_read);
        }
    }
    finish_resampling(resampler, converted);
    write_converted();
    close_output(output);
    check_end(input);
    commit(output.replaced);
}

}  // namespace vqns_tool
