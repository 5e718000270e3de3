#include "audio_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "failure.h"

namespace vqns_tool {
namespace {

// Sizes from here on stand in headers of programs that wrote to a pipe.
constexpr int64_t kPlaceholderSize = 0x7f000000;

// Where a header promises more bytes than the file has, libsndfile reads what there is and says so in its
// log alone: "data : 64000 (should be 38382)". Ogg files without an end have an unknown length.
bool promises_more(SNDFILE* file, const SF_INFO& info) {
    const int container = info.format & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_OGG) return info.frames == SF_COUNT_MAX && info.seekable != 0;
    std::string log(16384, '\0');
    const int length = sf_command(file, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    log.resize(static_cast<size_t>(std::max(length, 0)));
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const bool of_interest =
            line.find("data ") != std::string::npos || line.find("SSND") != std::string::npos ||
            line.find("Data Size") != std::string::npos || line.find("Riff size") != std::string::npos ||
            line.compare(0, 4, "riff") == 0;
        long long promised = 0, found = 0;
        const size_t colon = line.find(':');
        if (!of_interest || colon == std::string::npos ||
            std::sscanf(line.c_str() + colon, ": %lld (should be %lld)", &promised, &found) != 2) {
            continue;
        }
        if (promised > found && promised < kPlaceholderSize) return true;
    }
    return false;
}

// Whether the sound of a WAV or AIFF file, by the size of its chunk, reaches beyond the end of the file: the
// log holds some two thousand characters, and other chunks may fill it before.
bool sound_is_cut(const std::string& path, int64_t size) {
    std::ifstream file(path, std::ios::binary);
    unsigned char head[12];
    const auto read = [&](size_t count) {
        return static_cast<bool>(
            file.read(reinterpret_cast<char*>(head), static_cast<std::streamsize>(count)));
    };
    const auto is = [&](const char* id) { return std::memcmp(head, id, 4) == 0; };
    if (!read(12)) return false;
    const bool big_endian = is("FORM") || is("RIFX");
    if (!big_endian && !is("RIFF")) return false;
    while (read(8)) {
        int64_t promised = 0;
        for (int i = 0; i < 4; ++i) promised = promised << 8 | head[big_endian ? 4 + i : 7 - i];
        if (is("data") || is("SSND")) return size - file.tellg() < promised && promised < kPlaceholderSize;
        file.seekg(promised + promised % 2, std::ios::cur);
    }
    return false;
}

// Of a pipe the length is what its header promises.
bool is_placeholder(SNDFILE* file, const SF_INFO& info) {
    const double bytes = static_cast<double>(info.frames) / info.samplerate * sf_current_byterate(file);
    return bytes >= static_cast<double>(kPlaceholderSize);
}

void truncated(const AudioInput& input, const std::string& reason) {
    if (!input.accept_truncated) fail(input.name, reason);
    std::fprintf(stderr, "vqns: %s: %s; using what there is\n", input.name.c_str(), reason.c_str());
}

void open_file(AudioInput& input, const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) fail(path, system_reason(errno));
    struct stat there = {};
    fstat(descriptor, &there);
    if (S_ISDIR(there.st_mode) || (S_ISREG(there.st_mode) && there.st_size == 0)) {
        close(descriptor);
        fail(path, S_ISDIR(there.st_mode) ? "is a directory" : "is empty");
    }
    SF_INFO info = {};
    input.file.reset(sf_open_fd(descriptor, SFM_READ, &info, SF_TRUE));
    if (!input.file) {
        fail(path, "not a sound file that can be read (" + sound_reason(sf_strerror(nullptr)) + ")");
    }
    if (info.frames < 1) fail(path, "holds no sound");
    input.rate = info.samplerate;
    input.channels = info.channels;
    input.format = info.format;
    const bool is_file = S_ISREG(there.st_mode);
    const bool is_known = info.frames != SF_COUNT_MAX && (is_file || !is_placeholder(input.file.get(), info));
    input.frames = is_known ? info.frames : -1;
    const bool is_cut = is_file && sound_is_cut(path, there.st_size);
    if (is_cut || promises_more(input.file.get(), info)) truncated(input, "is truncated");
}

int64_t read_file(AudioInput& input, int16_t* out, int64_t frames) {
    const auto count = static_cast<size_t>(frames * input.channels);
    if (input.samples.size() < count) input.samples.resize(count);
    const int64_t got = sf_readf_float(input.file.get(), input.samples.data(), frames);
    input.frames_read += got;
    for (int64_t i = 0; i < got * input.channels; ++i) {
        const float scaled =
            std::clamp(32768.0f * input.samples[static_cast<size_t>(i)], -32768.0f, 32767.0f);
        out[i] = static_cast<int16_t>(std::isnan(scaled) ? 0 : std::lrint(scaled));
    }
    const bool is_end = got < frames;
    const bool is_short = is_end && input.frames >= 0 && input.frames_read < input.frames;
    const bool is_wrong = sf_error(input.file.get()) != SF_ERR_NO_ERROR;
    if ((is_wrong || is_short) && !input.damaged) {
        const int64_t sound = input.frames_read - (is_end ? 0 : got);
        char where[64];
        std::snprintf(where, sizeof where, "is truncated or damaged after %.3f s",
                      static_cast<double>(sound) / input.rate);
        truncated(input, where);
        input.damaged = true;
    }
    if (is_end && input.damaged) {
        input.frames = input.frames_read;
        input.file.reset();
    }
    return got;
}

int64_t read_raw(AudioInput& input, int16_t* out, int64_t frames) {
    const size_t frame_size = 2 * static_cast<size_t>(input.channels);
    const size_t held = input.raw.size();
    input.raw.resize(frame_size * static_cast<size_t>(frames));
    size_t filled = held;
    while (filled < frame_size) {
        const ssize_t got = read(STDIN_FILENO, input.raw.data() + filled, input.raw.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(input.name, system_reason(errno));
        if (got == 0) {
            input.ragged = filled > 0;
            return 0;
        }
        filled += static_cast<size_t>(got);
    }
    const size_t whole = filled / frame_size;
    for (size_t i = 0; i < whole * static_cast<size_t>(input.channels); ++i) {
        out[i] = static_cast<int16_t>(input.raw[2 * i] | input.raw[2 * i + 1] << 8);
    }
    input.raw.resize(filled);
    input.raw.erase(input.raw.begin(), input.raw.begin() + static_cast<ptrdiff_t>(whole * frame_size));
    input.frames_read += static_cast<int64_t>(whole);
    return static_cast<int64_t>(whole);
}

}  // namespace

AudioInput open_input(const std::string& path, const RawFormat& raw, bool accept_truncated) {
    AudioInput input;
    input.accept_truncated = accept_truncated;
    input.name = path;
    if (path != "-") {
        open_file(input, path);
        return input;
    }
    input.name = "standard input";
    input.rate = raw.rate;
    input.channels = raw.channels;
    if (isatty(STDIN_FILENO) != 0) fail(input.name, "is a terminal; raw PCM is expected");
    return input;
}

int64_t read_frames(AudioInput& input, int16_t* out, int64_t frames) {
    if (input.format == 0) return read_raw(input, out, frames);
    return input.file ? read_file(input, out, frames) : 0;
}

void check_end(const AudioInput& input) {
    if (input.ragged) fail(input.name, "ends within a frame");
    if (input.frames_read == 0) fail(input.name, "is empty");
}

double seconds_read(const AudioInput& input) {
    return static_cast<double>(input.frames_read) / input.rate;
}

}  // namespace vqns_tool
