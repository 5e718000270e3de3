#include <algorithm>
#include <cmath>

#include "audio_output.h"
#include "commands.h"
#include "failure.h"
#include "progress.h"
#include "rate_change.h"

namespace vqns_tool {
namespace {

using vqns_stream::kRateChangeBlock;
using vqns_stream::RateChange;

// Where the output that belongs to the first input sample lies.
struct Alignment {
    int64_t zeros;  // put in ahead of the sound
    int64_t skip;   // output samples then ahead of the sound
};

// The delay of a row of filters is seldom a whole number of output samples. Each zero ahead of the sound
// shifts it by from / to of one: enough of them bring it as near to a whole number as makes no difference.
Alignment align(const RateChange& change) {
    enum { kMostZeros = 4096 };
    Alignment best = {0, 0};
    double least = 1;
    for (int64_t zeros = 0; zeros < kMostZeros && least > 1e-6; ++zeros) {
        const double late = (change.delay + static_cast<double>(zeros)) * change.to / change.from;
        const double off = std::abs(late - std::round(late));
        if (off > least - 1e-9) continue;
        least = off;
        best = {zeros, static_cast<int64_t>(std::round(late))};
    }
    return best;
}

// One channel on its way: what has come out and not been written.
struct Channel {
    RateChange change;
    std::vector<int16_t> ready;
    int64_t skip = 0;
};

void convert(Channel& channel, const int16_t* samples, int64_t count) {
    std::vector<int16_t> out(static_cast<size_t>(change_rate_room(channel.change)));
    while (count > 0) {
        const auto block = static_cast<int>(std::min<int64_t>(count, kRateChangeBlock));
        const int produced = change_rate(channel.change, samples, block, out.data());
        const auto dropped = static_cast<int>(std::min<int64_t>(channel.skip, produced));
        channel.skip -= dropped;
        channel.ready.insert(channel.ready.end(), out.begin() + dropped, out.begin() + produced);
        samples += block;
        count -= block;
    }
}

void convert_zeros(Channel& channel, int64_t count) {
    const std::vector<int16_t> zeros(static_cast<size_t>(count), 0);
    convert(channel, zeros.data(), count);
}

// Writes what is ready in all channels, `most` frames at most; returns how many it wrote.
int64_t write_ready(std::vector<Channel>& channels, AudioOutput& output, int64_t most) {
    const auto count =
        static_cast<size_t>(std::min<int64_t>(most, static_cast<int64_t>(channels.front().ready.size())));
    std::vector<int16_t> frames(count * channels.size());
    for (size_t c = 0; c < channels.size(); ++c) {
        std::vector<int16_t>& ready = channels[c].ready;
        for (size_t i = 0; i < count; ++i) frames[i * channels.size() + c] = ready[i];
        ready.erase(ready.begin(), ready.begin() + static_cast<ptrdiff_t>(count));
    }
    if (count > 0) write_frames(output, frames.data(), static_cast<int64_t>(count));
    return static_cast<int64_t>(count);
}

std::vector<Channel> open_converters(const AudioInput& input, int rate) {
    std::vector<Channel> channels(static_cast<size_t>(input.channels));
    for (Channel& channel : channels) {
        try {
            channel.change = open_rate_change(input.rate, rate, vqns_stream::RateChangeQuality::kMusic);
        } catch (const std::runtime_error& error) {
            fail(input.name, error.what());
        }
        const Alignment alignment = align(channel.change);
        channel.skip = alignment.skip;
        convert_zeros(channel, alignment.zeros);
    }
    return channels;
}

}  // namespace

void resample(const ResampleOptions& options) {
    if (options.in != "-" && options.out != "-" && same_file(options.in, options.out)) {
        fail(options.out, "is the input");
    }
    AudioInput input = open_input(options.in, options.raw, options.accept_truncated);
    std::vector<Channel> channels = open_converters(input, options.rate);
    AudioOutput output;
    open_output(output, options.out, input, options.rate);

    enum { kBlock = 4096 };  // frames
    const size_t width = channels.size();
    std::vector<int16_t> block(kBlock * width), samples(kBlock);
    const auto due = [&] {  // output frames for the input so far
        return static_cast<int64_t>(
            std::llround(static_cast<double>(input.frames_read) * options.rate / input.rate));
    };
    int64_t written = 0;
    {
        Progress progress(input.frames, options.quiet);
        for (int64_t count; (count = read_frames(input, block.data(), kBlock)) > 0;) {
            for (size_t c = 0; c < width; ++c) {
                for (size_t i = 0; i < static_cast<size_t>(count); ++i) samples[i] = block[i * width + c];
                convert(channels[c], samples.data(), count);
            }
            written += write_ready(channels, output, due() - written);
            show_progress(progress, input.frames_read);
        }
    }
    while (written < due()) {
        for (Channel& channel : channels) convert_zeros(channel, kRateChangeBlock);
        written += write_ready(channels, output, due() - written);
    }
    close_output(output);
    check_end(input);
    commit(output.replaced);
}

}  // namespace vqns_tool
