#include "page_sound.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <utility>

#include "failure.h"

namespace vqns_tool {
namespace {

constexpr const char* kName = "a temporary file";

std::string uri_head(Coding coding) {
    return coding == Coding::kFlac ? "data:audio/flac;base64," : "data:audio/mpeg;base64,";
}

SF_INFO sound_info(Coding coding, int rate, int channels) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = channels;
    info.format = coding == Coding::kFlac ? SF_FORMAT_FLAC | SF_FORMAT_PCM_16
                                          : SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
    return info;
}

int open_nameless_file() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vqns.XXXXXX").string();
    const int descriptor = mkstemp(pattern.data());
    if (descriptor < 0) fail(pattern, system_reason(errno));
    unlink(pattern.c_str());
    return descriptor;
}

int64_t size_of(const PageSound& sound) {
    struct stat there = {};
    if (fstat(sound.descriptor, &there) != 0) fail(kName, system_reason(errno));
    return there.st_size;
}

int duplicate(const PageSound& sound) {
    const int descriptor = dup(sound.descriptor);
    if (descriptor < 0 || lseek(descriptor, 0, SEEK_SET) != 0) fail(kName, system_reason(errno));
    return descriptor;
}

SoundFile open_again(const PageSound& sound, SF_INFO& info) {
    SoundFile file(sf_open_fd(duplicate(sound), SFM_READ, &info, SF_TRUE));
    if (!file) fail(kName, sound_reason(sf_strerror(nullptr)));
    return file;
}

}  // namespace

PageSound::~PageSound() {
    if (descriptor >= 0) close(descriptor);
}

bool can_code(Coding coding, int rate, int channels) {
    static constexpr int kMp3Rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
    const bool mp3_rate = std::find(std::begin(kMp3Rates), std::end(kMp3Rates), rate) != std::end(kMp3Rates);
    if (coding == Coding::kMp3 && !mp3_rate) return false;
    return can_write(sound_info(coding, rate, channels));
}

void open_page_sound(PageSound& sound, Coding coding, int rate, int channels) {
    sound.coding = coding;
    sound.rate = rate;
    sound.channels = channels;
    sound.descriptor = open_nameless_file();
    open_output(sound.output, kName, duplicate(sound), sound_info(coding, rate, channels));
}

void close_page_sound(PageSound& sound) {
    close_output(sound.output);
    SF_INFO info = {};
    open_again(sound, info);
    if (info.frames < sound.output.frames) fail(kName, "could not be written in full");
}

void recode(PageSound& sound, Coding coding) {
    PageSound other;
    open_page_sound(other, coding, sound.rate, sound.channels);
    SF_INFO info = {};
    const SoundFile file = open_again(sound, info);
    std::vector<int16_t> block(static_cast<size_t>(4096) * static_cast<size_t>(sound.channels));
    for (sf_count_t count; (count = sf_readf_short(file.get(), block.data(), 4096)) > 0;) {
        write_frames(other.output, block.data(), count);
    }
    close_page_sound(other);
    std::swap(sound.descriptor, other.descriptor);
    sound.coding = coding;
}

int64_t data_uri_size(const PageSound& sound) {
    return static_cast<int64_t>(uri_head(sound.coding).size()) + (size_of(sound) + 2) / 3 * 4;
}

void write_data_uri(ReplacedFile& file, const PageSound& sound) {
    write_bytes(file, uri_head(sound.coding));
    std::string block(3 << 16, '\0');  // whole triples, so that the blocks' codes join
    for (int64_t at = 0, end = size_of(sound); at < end;) {
        const size_t wanted = std::min(block.size(), static_cast<size_t>(end - at));
        for (size_t filled = 0; filled < wanted;) {
            const ssize_t n = pread(sound.descriptor, block.data() + filled, wanted - filled,
                                    at + static_cast<int64_t>(filled));
            if (n < 0 && errno == EINTR) continue;
            if (n < 1) fail(kName, n < 0 ? system_reason(errno) : "ends early");
            filled += static_cast<size_t>(n);
        }
        write_bytes(file, base64({block.data(), wanted}));
        at += static_cast<int64_t>(wanted);
    }
}

std::string base64(std::string_view bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t triple = 0;
        for (size_t k = i; k < i + 3; ++k) {
            triple = triple << 8 | (k < bytes.size() ? static_cast<unsigned char>(bytes[k]) : 0u);
        }
        for (int shift = 18; shift >= 0; shift -= 6) text += kDigits[triple >> shift & 63];
    }
    const size_t missing = (3 - bytes.size() % 3) % 3;
    return text.replace(text.size() - missing, missing, missing, '=');
}

}  // namespace vqns_tool
