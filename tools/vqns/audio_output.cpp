#include "audio_output.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <initializer_list>

#include "failure.h"

namespace vqns_tool {
namespace {

// What a file name's ending says: containers that bear it, the usual one first, and the sample formats to
// fall back on.
struct Ending {
    const char* ending;
    int containers[3];
    int sample_formats[2];
};
const Ending kEndings[] = {
    {".wav", {SF_FORMAT_WAV, SF_FORMAT_WAVEX, SF_FORMAT_RF64}, {SF_FORMAT_PCM_16}},
    {".rf64", {SF_FORMAT_RF64}, {SF_FORMAT_PCM_16}},
    {".w64", {SF_FORMAT_W64}, {SF_FORMAT_PCM_16}},
    {".aif", {SF_FORMAT_AIFF}, {SF_FORMAT_PCM_16}},
    {".aiff", {SF_FORMAT_AIFF}, {SF_FORMAT_PCM_16}},
    {".aifc", {SF_FORMAT_AIFF}, {SF_FORMAT_PCM_16}},
    {".au", {SF_FORMAT_AU}, {SF_FORMAT_PCM_16}},
    {".snd", {SF_FORMAT_AU}, {SF_FORMAT_PCM_16}},
    {".caf", {SF_FORMAT_CAF}, {SF_FORMAT_PCM_16}},
    {".flac", {SF_FORMAT_FLAC}, {SF_FORMAT_PCM_16}},
    {".ogg", {SF_FORMAT_OGG}, {SF_FORMAT_VORBIS, SF_FORMAT_OPUS}},
    {".oga", {SF_FORMAT_OGG}, {SF_FORMAT_VORBIS, SF_FORMAT_OPUS}},
    {".opus", {SF_FORMAT_OGG}, {SF_FORMAT_OPUS}},
    {".mp3", {SF_FORMAT_MPEG}, {SF_FORMAT_MPEG_LAYER_III}},
};

// Rates of which sf_format_check does not know that coders refuse them.
bool takes_rate(int container, int samples, int rate) {
    constexpr int kOpusRates[] = {8000, 12000, 16000, 24000, 48000};
    if (samples == SF_FORMAT_OPUS) {
        return std::find(std::begin(kOpusRates), std::end(kOpusRates), rate) != std::end(kOpusRates);
    }
    // A FLAC frame has 16 bits for Hz, or for tens of Hz.
    return container != SF_FORMAT_FLAC || rate <= 65535 || rate % 10 == 0;
}

bool can_write_as(int format, SF_INFO info) {
    info.format = format;
    return can_write(info);
}

// libsndfile writes on when the sizes in a WAV file's header have wrapped.
void check_size(const AudioOutput& output, double seconds) {
    constexpr double kMost = 0x1p32 - 0x1p16;  // with room for other chunks
    const int container = output.format & SF_FORMAT_TYPEMASK;
    if (container != SF_FORMAT_WAV && container != SF_FORMAT_WAVEX) return;
    if (seconds * sf_current_byterate(output.file.get()) > kMost) {
        fail(output.name, "a WAV file holds 4 GiB at most; .rf64 and .w64 hold more");
    }
}

// What a path's ending says; null if nothing.
const Ending* ending_of(const std::string& path) {
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const Ending* known = std::find_if(std::begin(kEndings), std::end(kEndings),
                                       [&](const Ending& e) { return ending == e.ending; });
    return known == std::end(kEndings) ? nullptr : known;
}

// Chooses the format for `info`'s rate and channels; 0 if there is none.
int choose_format(const std::string& path, int input_format, const SF_INFO& info) {
    const int input_container = input_format & SF_FORMAT_TYPEMASK;
    const int input_samples = input_format & SF_FORMAT_SUBMASK;
    const Ending* known = ending_of(path);
    if (known == nullptr) return can_write_as(input_format, info) ? input_format : 0;
    const bool same_container = std::find(std::begin(known->containers), std::end(known->containers),
                                          input_container) != std::end(known->containers);
    const bool opus_alone = known->sample_formats[0] == SF_FORMAT_OPUS;
    if (same_container && (!opus_alone || input_samples == SF_FORMAT_OPUS) &&
        can_write_as(input_format, info)) {
        return input_format;
    }
    const int container = known->containers[0];
    if (!opus_alone && can_write_as(container | input_samples, info)) return container | input_samples;
    for (const int samples : known->sample_formats) {
        if (samples != 0 && can_write_as(container | samples, info)) return container | samples;
    }
    return 0;
}

void copy_texts(SNDFILE* from, SNDFILE* to) {
    if (from == nullptr) return;
    for (int kind = SF_STR_FIRST; kind <= SF_STR_LAST; ++kind) {
        const char* text = sf_get_string(from, kind);
        if (text != nullptr && kind != SF_STR_SOFTWARE) sf_set_string(to, kind, text);
    }
}

void open_raw(AudioOutput& output) {
    output.name = "standard output";
    if (isatty(STDOUT_FILENO) != 0) fail(output.name, "is a terminal; send raw PCM to a file or a program");
    output.raw_descriptor = dup(STDOUT_FILENO);
    if (output.raw_descriptor < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        fail(output.name, system_reason(errno));
    }
}

void write_raw(AudioOutput& output, const int16_t* samples, size_t count) {
    output.raw.resize(2 * count);
    for (size_t i = 0; i < count; ++i) {
        const auto bits = static_cast<uint16_t>(samples[i]);
        output.raw[2 * i] = static_cast<unsigned char>(bits & 0xff);
        output.raw[2 * i + 1] = static_cast<unsigned char>(bits >> 8);
    }
    for (size_t written = 0; written < output.raw.size();) {
        const ssize_t n =
            write(output.raw_descriptor, output.raw.data() + written, output.raw.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(output.name, system_reason(errno));
        written += static_cast<size_t>(n);
    }
}

[[noreturn]] void fail_writing(const AudioOutput& output, int error) {
    fail(output.name, error != 0 ? system_reason(error) : sound_reason(sf_strerror(output.file.get())));
}

// Some encoders of libsndfile lose the failure of a write; the error number remains.
bool disk_failed(int error) {
    return error == ENOSPC || error == EFBIG || error == EDQUOT || error == EIO || error == EPIPE;
}

// 8-bit formats cut the lower byte off: that shall round.
void round_to_8_bits(int16_t& x) {
    x = static_cast<int16_t>(std::min(x + 128, 32767) & ~0xff);
}

sf_count_t write_samples(AudioOutput& output, const int16_t* samples, size_t count) {
    const int container = output.format & SF_FORMAT_TYPEMASK, kind = output.format & SF_FORMAT_SUBMASK;
    if (container == SF_FORMAT_MPEG || container == SF_FORMAT_OGG) {
        // These encoders work in floating point; of 16-bit stereo libsndfile's MPEG encoder makes garbage.
        output.floats.resize(count);
        std::transform(samples, samples + count, output.floats.begin(),
                       [](int16_t x) { return static_cast<float>(x) / 32768.0f; });
        return sf_write_float(output.file.get(), output.floats.data(), static_cast<sf_count_t>(count));
    }
    if (kind == SF_FORMAT_PCM_U8 || kind == SF_FORMAT_PCM_S8) {
        output.rounded.assign(samples, samples + count);
        std::for_each(output.rounded.begin(), output.rounded.end(), round_to_8_bits);
        samples = output.rounded.data();
    }
    return sf_write_short(output.file.get(), samples, static_cast<sf_count_t>(count));
}

// The last resort against an output that is not what was written.
void check_length(const AudioOutput& output) {
    if (output.replaced.temporary.empty()) return;
    SF_INFO info = {};
    const SoundFile file(sf_open(output.replaced.temporary.c_str(), SFM_READ, &info));
    if (!file || info.frames < output.frames || info.frames == SF_COUNT_MAX) {
        fail(output.name, "could not be written in full");
    }
}

}  // namespace

bool can_write(SF_INFO info) {
    const int container = info.format & SF_FORMAT_TYPEMASK, samples = info.format & SF_FORMAT_SUBMASK;
    // libsndfile knows MPEG sound in other containers, but does not write it.
    const bool mpeg = samples >= SF_FORMAT_MPEG_LAYER_I && samples <= SF_FORMAT_MPEG_LAYER_III;
    if (mpeg && container != SF_FORMAT_MPEG) return false;
    return takes_rate(container, samples, info.samplerate) && sf_format_check(&info) == SF_TRUE;
}

void open_output(AudioOutput& output, const std::string& path, const AudioInput& input, int rate) {
    if (path == "-") {
        open_raw(output);
        output.channels = input.channels;
        return;
    }
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = input.channels;
    info.format = choose_format(path, input.format, info);
    if (info.format == 0 && input.format == 0 && !ending_of(path)) {
        fail(path, "the name says no sound format, and raw PCM has none to keep");
    }
    if (info.format == 0) {
        fail(path, "no sound format of that name holds " + std::to_string(info.channels) + " channels at " +
                       std::to_string(rate) + " Hz");
    }
    open_replaced(output.replaced, path);
    open_output(output, path, release_descriptor(output.replaced), info);
    copy_texts(input.file.get(), output.file.get());
    check_size(output, static_cast<double>(input.frames) / input.rate);
}

void open_output(AudioOutput& output, const std::string& name, int descriptor, SF_INFO info) {
    output.name = name;
    output.rate = info.samplerate;
    output.channels = info.channels;
    output.format = info.format;
    output.file.reset(sf_open_fd(descriptor, SFM_WRITE, &info, SF_TRUE));
    if (!output.file) fail(name, sound_reason(sf_strerror(nullptr)));
    sf_command(output.file.get(), SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    sf_command(output.file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // The peak chunk would hold the time of day.
    sf_command(output.file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

void write_frames(AudioOutput& output, const int16_t* frames, int64_t count) {
    if (output.raw_descriptor >= 0) {
        write_raw(output, frames, static_cast<size_t>(count * output.channels));
        return;
    }
    check_size(output, static_cast<double>(output.frames + count) / output.rate);
    const int64_t samples = count * output.channels;
    errno = 0;
    const bool written = write_samples(output, frames, static_cast<size_t>(samples)) == samples;
    if (!written || disk_failed(errno)) fail_writing(output, errno);
    output.frames += count;
}

void close_output(AudioOutput& output) {
    if (!output.file) return;
    errno = 0;
    const bool closed = sf_close(output.file.release()) == 0;
    if (!closed || disk_failed(errno)) fail_writing(output, errno);
    check_length(output);
}

}  // namespace vqns_tool
