#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <poll.h>
#include <pty.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <thread>

#include "vqns_stream.h"

// The program as its users have it: a process, files, pipes.

namespace {

namespace fs = std::filesystem;
using Pcm = std::vector<int16_t>;
using Arguments = std::vector<std::string>;

const std::string kSample = VQNS_SOURCE_DIR "/samples/rumble.flac";

struct Result {
    int status;  // exit status, or minus the signal
    std::string out, err;
};

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_text(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

[[noreturn]] void become_program(const Arguments& arguments) {
    std::vector<char*> argv = {const_cast<char*>(VQNS_PROGRAM)};
    for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(VQNS_PROGRAM, argv.data());
    _exit(127);
}

int wait_for(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class Tool : public ::testing::Test {
  protected:
    fs::path folder;

    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "vqns_tool_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder = pattern;
    }
    void TearDown() override {
        fs::remove_all(folder);
    }
    std::string at(const std::string& name) const {
        return (folder / name).string();
    }

    // `in`: on standard input. `out_file`: where standard output goes, if not into the result.
    Result run(const Arguments& arguments, const std::string& in = "", const std::string& out_file = "",
               rlim_t largest_file = RLIM_INFINITY) const {
        const std::string out = out_file.empty() ? at("stdout") : out_file;
        write_text(at("stdin"), in);
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(at("stdin").c_str(), O_RDONLY), 0);
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
            dup2(open(at("stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            if (largest_file != RLIM_INFINITY) {
                const rlimit limit = {largest_file, largest_file};
                setrlimit(RLIMIT_FSIZE, &limit);
            }
            become_program(arguments);
        }
        const int status = wait_for(child);
        return {status, out_file.empty() ? contents(out) : "", contents(at("stderr"))};
    }
    // Everything that a run leaves behind, but what this class put there.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename().string();
            if (name.compare(0, 3, "std") != 0) names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

struct Sound {
    int rate, channels, format;
    Pcm samples;  // interleaved
    size_t frames() const {
        return samples.size() / static_cast<size_t>(channels);
    }
};

using SndFile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

void save(const std::string& path, const Sound& sound, const char* title = nullptr) {
    SF_INFO info = {0, sound.rate, sound.channels, sound.format, 0, 0};
    const SndFile file(sf_open(path.c_str(), SFM_WRITE, &info), sf_close);
    ASSERT_NE(file, nullptr) << path << ": " << sf_strerror(nullptr);
    if (title != nullptr) sf_set_string(file.get(), SF_STR_TITLE, title);
    std::vector<float> floats(sound.samples.size());
    for (size_t i = 0; i < floats.size(); ++i) floats[i] = static_cast<float>(sound.samples[i]) / 32768;
    const auto count = static_cast<sf_count_t>(floats.size());
    const bool pcm = (sound.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16;
    ASSERT_EQ(pcm ? sf_write_short(file.get(), sound.samples.data(), count)
                  : sf_write_float(file.get(), floats.data(), count),
              count);
}

Sound load(const std::string& path, std::string* title = nullptr) {
    SF_INFO info = {};
    const SndFile file(sf_open(path.c_str(), SFM_READ, &info), sf_close);
    EXPECT_NE(file, nullptr) << path;
    if (!file) return {16000, 1, 0, {}};
    std::vector<float> floats(static_cast<size_t>(info.frames * info.channels));
    const sf_count_t got = sf_readf_float(file.get(), floats.data(), info.frames);
    EXPECT_EQ(got, info.frames) << path;
    Sound sound = {info.samplerate, info.channels, info.format, {}};
    for (const float x : floats)
        sound.samples.push_back(static_cast<int16_t>(std::lrint(32767.99f * x - 0.49f)));
    const char* text = sf_get_string(file.get(), SF_STR_TITLE);
    if (title != nullptr && text != nullptr) *title = text;
    return sound;
}

// Tones that pass every filter, in each channel others.
double tone(double seconds, int channel) {
    const double turn = 2 * M_PI * seconds;
    return 5000 * std::sin((350 + 90 * channel) * turn) + 3000 * std::sin((1210 - 130 * channel) * turn + 1);
}

Sound tones(int rate, int channels, double seconds, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16) {
    Sound sound = {rate, channels, format, {}};
    const auto frames = static_cast<size_t>(seconds * rate);
    for (size_t i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            sound.samples.push_back(
                static_cast<int16_t>(std::lround(tone(static_cast<double>(i) / rate, c))));
        }
    }
    return sound;
}

// The worst channel's distance from the tones, without the first and last 50 ms, in dB of their power.
double tone_error_db(const Sound& sound) {
    double worst = -200;
    const auto edge = static_cast<size_t>(sound.rate / 20), width = static_cast<size_t>(sound.channels);
    for (size_t c = 0; c < width; ++c) {
        double error = 0, power = 0;
        for (size_t i = edge; i + edge < sound.frames(); ++i) {
            const double want = tone(static_cast<double>(i) / sound.rate, static_cast<int>(c));
            const double off = sound.samples[i * width + c] - want;
            error += off * off;
            power += want * want;
        }
        worst = std::max(worst, 10 * std::log10(error / power));
    }
    return worst;
}

std::string raw(const Pcm& samples) {
    return {reinterpret_cast<const char*>(samples.data()), 2 * samples.size()};
}

Pcm from_raw(const std::string& bytes) {
    Pcm samples(bytes.size() / 2);
    std::copy_n(bytes.data(), 2 * samples.size(), reinterpret_cast<char*>(samples.data()));
    return samples;
}

using Json = nlohmann::json;

Json parse_json(const std::string& text) {
    Json json = Json::parse(text, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << text;
    return json;
}

double number(const Json& json) {
    return json.get<double>();
}

TEST_F(Tool, KeepsFormatLengthAndAlignment) {
    struct {
        const char* name;
        int format, rate, channels;
        double error_db;
    } const cases[] = {
        {"cd.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, -45},
        {"phone.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1, -45},
        {"phone.au", SF_FORMAT_AU | SF_FORMAT_ULAW, 8000, 1, -30},
        {"old.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 22050, 1, -28},
        {"odd.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 12000, 2, -45},
        {"hall.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 48000, 3, -45},
        {"studio.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 96000, 2, -45},
        {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 32000, 1, -45},
        {"a.caf", SF_FORMAT_CAF | SF_FORMAT_ALAC_16, 16000, 2, -45},
        {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, 2, -22},
        {"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000, 1, -15},
        {"a.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100, 2, -22},
    };
    for (const auto& c : cases) {
        Sound in = tones(c.rate, c.channels, 0.73, c.format);
        save(at(c.name), in, "a title");
        in = load(at(c.name));
        const std::string out_name = at(std::string("out_") + c.name);
        // The signal's way through everything but the network, which would not take tones for speech.
        const Result result =
            run({"denoise", at(c.name), out_name, "--attenuation-limit", "0", "--no-level"});
        ASSERT_EQ(result.status, 0) << c.name << ": " << result.err;
        std::string title;
        const Sound out = load(out_name, &title);
        EXPECT_EQ(out.format, in.format) << c.name;
        EXPECT_EQ(out.rate, in.rate) << c.name;
        EXPECT_EQ(out.channels, in.channels) << c.name;
        EXPECT_EQ(out.frames(), in.frames()) << c.name;
        EXPECT_LT(tone_error_db(out), c.error_db) << c.name;
        const bool holds_texts = std::string(c.name).find("au") == std::string::npos;
        EXPECT_EQ(title, holds_texts ? "a title" : "") << c.name;
    }
}

TEST_F(Tool, NameOfTheOutputChoosesItsFormat) {
    struct {
        int in;
        const char* out;
        int want;
    } const cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, "a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, "a.FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, "a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, "a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, "a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {SF_FORMAT_OGG | SF_FORMAT_OPUS, "a.ogg", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, "no_ending", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    };
    for (const auto& c : cases) {
        save(at("in"), tones(48000, 1, 0.3, c.in));
        const Result result = run({"denoise", "-q", at("in"), at(c.out)});
        ASSERT_EQ(result.status, 0) << c.out << ": " << result.err;
        EXPECT_EQ(result.err, "") << c.out;
        EXPECT_EQ(load(at(c.out)).format, c.want) << c.out;
    }
}

// Root mean square, in dB of full scale, of the pieces of 10 ms within or outside of the segments.
double level_db(const Pcm& samples, const Json& segments, bool within) {
    double sum = 0, count = 0;
    for (size_t i = 0; i + 160 <= samples.size(); i += 160) {
        const double middle = (static_cast<double>(i) + 80) / 16000;
        bool speech = false;
        for (const Json& s : segments) {
            speech = speech || (middle > number(s["start"]) && middle < number(s["end"]));
        }
        if (speech != within) continue;
        for (size_t k = i; k < i + 160; ++k) sum += static_cast<double>(samples[k]) * samples[k];
        count += 160;
    }
    return 10 * std::log10(sum / count / 32768 / 32768);
}

TEST_F(Tool, MakesRealSpeechCleanerAndSaysSo) {
    for (const char* name : {"rumble", "hum", "changing"}) {
        const std::string in = std::string(VQNS_SOURCE_DIR "/samples/") + name + ".flac";
        const Result result = run({"denoise", in, at("out.wav"), "--no-level"});
        ASSERT_EQ(result.status, 0) << result.err;
        double speech[2] = {}, pauses[2] = {}, duration = 0, factor = 0;
        const auto scan = [&](const char* what, const char* format, double* a, double* b) {
            const size_t line = result.err.find(what);
            ASSERT_NE(line, std::string::npos) << result.err;
            EXPECT_EQ(std::sscanf(result.err.c_str() + line + std::strlen(what), format, a, b), 2)
                << result.err;
        };
        scan("duration", "%lf s, %lf Hz", &duration, &factor);
        EXPECT_NEAR(duration, static_cast<double>(load(in).frames()) / 16000, 0.01);
        scan("time taken", "%lf s, real-time factor %lf", &duration, &factor);
        EXPECT_GT(factor, 0);
        scan("  speech  ", "%lf dBFS before, %lf dBFS after", &speech[0], &speech[1]);
        scan("speech pauses", "%lf dBFS before, %lf dBFS after", &pauses[0], &pauses[1]);
        EXPECT_LT(pauses[1], pauses[0] - 12) << name;
        EXPECT_GT(speech[1], speech[0] - 4) << name;

        if (in != kSample) continue;
        // A second channel without speech takes nothing from the time with speech.
        Sound stereo = {16000, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, {}};
        for (const int16_t x : load(in).samples) stereo.samples.insert(stereo.samples.end(), {0, x});
        save(at("stereo.wav"), stereo);
        const std::string both = run({"denoise", at("stereo.wav"), at("out2.wav"), "--no-level"}).err;
        const auto share = [](const std::string& text) {
            const size_t end = text.find(" % of the time");
            return text.substr(text.rfind(' ', end - 1), end - text.rfind(' ', end - 1));
        };
        EXPECT_EQ(share(both), share(result.err));
        // The same from the files, by the pieces that the detector tells.
        const Result vad = run({"vad", in, "--format", "json", "--min-pause", "0", "--min-speech", "0"});
        const Json segments = parse_json(vad.out)["segments"];
        for (size_t i = 1; i < segments.size(); ++i) {
            EXPECT_GT(number(segments[i]["start"]), number(segments[i - 1]["end"]) + 0.005);
        }
        EXPECT_GE(segments.size(), 3u);
        const Pcm before = load(in).samples, after = load(at("out.wav")).samples;
        EXPECT_NEAR(level_db(before, segments, true), speech[0], 0.3) << name;
        EXPECT_NEAR(level_db(after, segments, true), speech[1], 0.3) << name;
        EXPECT_NEAR(level_db(before, segments, false), pauses[0], 0.3) << name;
        EXPECT_NEAR(level_db(after, segments, false), pauses[1], 0.3) << name;
    }
}

TEST_F(Tool, AttenuationLimitMixesTheInputIn) {
    Sound sound = load(kSample);
    sound.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    sound.samples.resize(2 * 16000);
    save(at("in.wav"), sound);
    const Pcm& dry = sound.samples;
    const auto denoised = [&](const Arguments& more) {
        Arguments arguments = {"denoise", "-q", "--no-level", at("in.wav"), at("out.wav")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(run(arguments).status, 0);
        return load(at("out.wav")).samples;
    };
    const Pcm wet = denoised({});
    ASSERT_EQ(wet.size(), dry.size());
    EXPECT_EQ(denoised({"--attenuation-limit", "0"}), dry);
    for (const double limit : {6.0, 12.5}) {
        const Pcm mixed = denoised({"--attenuation-limit", std::to_string(limit)});
        const double share = std::pow(10, -limit / 20);
        ASSERT_EQ(mixed.size(), dry.size());
        for (size_t i = 0; i < dry.size(); ++i) {
            ASSERT_NEAR(mixed[i], wet[i] + share * (dry[i] - wet[i]), 0.51) << limit << " dB, sample " << i;
        }
    }
}

TEST_F(Tool, LevelsQuietSpeechUnlessToldNotTo) {
    Sound quiet = load(kSample);
    for (int16_t& x : quiet.samples) x = static_cast<int16_t>(x / 6);
    quiet.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    save(at("in.wav"), quiet);
    double power[2] = {};
    for (const bool level : {false, true}) {
        ASSERT_EQ(
            run({"denoise", "-q", at("in.wav"), at("out.wav"), level ? "--level" : "--no-level"}).status, 0);
        for (const int16_t x : load(at("out.wav")).samples) power[level] += static_cast<double>(x) * x;
    }
    EXPECT_GT(10 * std::log10(power[1] / power[0]), 3);
}

TEST_F(Tool, RawStreamEqualsFile) {
    for (const int rate : {16000, 44100}) {
        const Sound sound = tones(rate, 2, 0.6);
        save(at("in.wav"), sound);
        const Result filed = run({"denoise", "-q", at("in.wav"), at("out.wav")});
        ASSERT_EQ(filed.status, 0) << filed.err;
        const Pcm want = load(at("out.wav")).samples;
        const Arguments live = {"denoise", "-", "-", "--rate", std::to_string(rate), "--channels", "2"};
        const Result streamed = run(live, raw(sound.samples));
        ASSERT_EQ(streamed.status, 0) << streamed.err;
        EXPECT_EQ(from_raw(streamed.out), want) << rate;

        Arguments delayed = live;
        delayed.push_back("--constant-delay");
        const Pcm late = from_raw(run(delayed, raw(sound.samples)).out);
        const std::unique_ptr<vqns_stream::Stream, void (*)(vqns_stream::Stream*)> stream(
            vqns_stream::open(rate, {}), vqns_stream::close);
        const auto lead = static_cast<size_t>(2 * vqns_stream::latency(stream.get()));
        ASSERT_EQ(late.size(), want.size());
        Pcm expected(lead, 0);
        expected.insert(expected.end(), want.begin(), want.end() - static_cast<ptrdiff_t>(lead));
        EXPECT_EQ(late, expected) << rate;
    }
}

TEST_F(Tool, NoMessageGetsIntoTheSoundWhereStandardErrorIsClosed) {
    write_text(at("in.raw"), raw(tones(16000, 1, 0.5).samples));
    const std::string command =
        "'" VQNS_PROGRAM "' denoise --rate 16000 - - <'" + at("in.raw") + "' >'" + at("out.raw") + "' 2>&-";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(contents(at("out.raw")).size(), 16000u);
}

TEST_F(Tool, FilesMayBePipes) {
    save(at("in.au"), tones(16000, 1, 0.5, SF_FORMAT_AU | SF_FORMAT_PCM_16));
    save(at("in.wav"), tones(16000, 1, 0.5));
    std::string header = contents(at("in.wav"));
    write_text(at("endless.wav"), header.replace(40, 4, std::string(4, '\xff')));
    const auto shell = [&](const std::string& line) {
        return std::system(("cd '" + folder.string() + "' && " + line).c_str());
    };
    const std::string program = "'" VQNS_PROGRAM "' ";
    EXPECT_EQ(shell(program + "denoise -q in.au /dev/stdout | cat > out.au"), 0);
    EXPECT_EQ(load(at("out.au")).frames(), 8000u);
    EXPECT_EQ(shell(program + "report -q in.wav -o /dev/stdout | cat > out.html"), 0);
    EXPECT_NE(contents(at("out.html")).find("</html>"), std::string::npos);
    EXPECT_EQ(shell("cat endless.wav | " + program + "denoise -q /dev/stdin out.wav"), 0);
    EXPECT_EQ(load(at("out.wav")).frames(), 8000u);
}

TEST_F(Tool, LiveStreamIsNotHeldBack) {
    int to[2], from[2];
    ASSERT_EQ(pipe(to), 0);
    ASSERT_EQ(pipe(from), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(to[0], 0);
        dup2(from[1], 1);
        for (const int end : {to[0], to[1], from[0], from[1]}) close(end);
        become_program({"denoise", "-q", "-", "-", "--rate", "16000"});
    }
    close(to[0]);
    close(from[1]);
    const Pcm block(160, 1000);
    size_t received = 0;
    for (size_t sent = 160; sent <= 160 * 50; sent += 160) {
        ASSERT_EQ(write(to[1], block.data(), 320), 320);
        const size_t due = sent > 800 ? 2 * (sent - 800) : 0;  // bytes that must be there before more goes in
        pollfd waiting = {from[0], POLLIN, 0};
        while (received < due) {
            char bytes[4096];
            ASSERT_EQ(poll(&waiting, 1, 20000), 1) << "held back after " << sent;
            const ssize_t n = read(from[0], bytes, sizeof bytes);
            ASSERT_GT(n, 0);
            received += static_cast<size_t>(n);
        }
    }
    close(to[1]);
    char bytes[4096];
    for (ssize_t n; (n = read(from[0], bytes, sizeof bytes)) > 0;) received += static_cast<size_t>(n);
    close(from[0]);
    EXPECT_EQ(wait_for(child), 0);
    EXPECT_EQ(received, 2u * 160 * 50);
}

TEST_F(Tool, ErrorsAreOneLineAndLeaveNothingBehind) {
    save(at("good.wav"), tones(16000, 1, 0.5));
    Sound speech = load(kSample);
    save(at("good.flac"), speech);
    speech.format = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
    save(at("good.ogg"), speech);
    for (const char* ending : {"wav", "ogg", "flac"}) {
        const std::string whole = contents(at(std::string("good.") + ending));
        write_text(at(std::string("cut.") + ending), whole.substr(0, whole.size() * 6 / 10));
    }
    std::string damaged = contents(at("good.flac"));
    damaged[damaged.size() / 2] ^= 0x10;
    write_text(at("bad.flac"), damaged);
    save(at("odd.wav"), tones(96001, 1, 0.1));
    save(at("huge.w64"), {48000, 8, SF_FORMAT_W64 | SF_FORMAT_PCM_16, Pcm(8)});
    std::string huge = contents(at("huge.w64"));
    for (const size_t size : {size_t{16}, huge.size() - 16 - 8}) huge[size + 4] = 2;  // 8 GiB more
    write_text(at("huge.w64"), huge);
    fs::resize_file(at("huge.w64"), huge.size() + (size_t{2} << 32));
    fs::create_symlink("loop2.wav", folder / "loop1.wav");
    fs::create_symlink("loop1.wav", folder / "loop2.wav");
    // A header that libsndfile's log has no room for.
    std::string long_header = contents(at("good.wav"));
    for (int i = 0; i < 100; ++i) long_header.insert(36, std::string("Note\4\0\0\0text", 12));
    write_text(at("long.wav"), long_header.substr(0, long_header.size() - 3000));
    write_text(at("empty.wav"), "");
    write_text(at("header.wav"), contents(at("good.wav")).substr(0, 44).replace(40, 4, std::string(4, '\0')));
    write_text(at("words.wav"), std::string(5000, 'w'));
    write_text(at("old.wav"), "an older result");
    save(at("slow.wav"), tones(4000, 1, 0.5));
    Sound noise = tones(64000, 1, 6);
    std::mt19937 random(1);
    for (int16_t& x : noise.samples) x = static_cast<int16_t>(random() % 20000);
    save(at("wide.wav"), noise);
    save(at("nine.wav"), tones(8000, 9, 0.1));
    fs::create_symlink("good.wav", folder / "link.wav");
    fs::create_hard_link(folder / "good.wav", folder / "hard.wav");
    fs::create_directory(folder / "folder");
    const std::vector<std::string> before = files();
    const std::string good = at("good.wav"), old = at("old.wav");
    struct {
        Arguments arguments;
        int status;
        const char* reason;
    } const cases[] = {
        {{}, 2, "subcommand"},
        {{"clean"}, 2, "clean"},
        {{"denoise", good}, 2, "OUT"},
        {{"denoise", good, old, "--faster"}, 2, "--faster"},
        {{"denoise", good, old, "--attenuation-limit", "-3"}, 2, "--attenuation-limit"},
        {{"denoise", good, old, "--attenuation-limit", "loud"}, 2, "--attenuation-limit"},
        {{"denoise", good, old, "--rate", "16000"}, 2, "raw PCM"},
        {{"denoise", good, old, "--constant-delay"}, 2, "--constant-delay"},
        {{"denoise", "-", old}, 2, "--rate"},
        {{"denoise", "-", old, "--rate", "7999"}, 2, "--rate"},
        {{"vad", good, "--format", "xml"}, 2, "--format"},
        {{"vad", good, "--mode", "4"}, 2, "--mode"},
        {{"resample", good, old}, 2, "--rate"},
        {{"info", "--rate", "1000"}, 2, "--rate"},
        {{"denoise", at("none.wav"), old}, 1, "none.wav: No such file"},
        {{"denoise", at("folder"), old}, 1, "folder: is a directory"},
        {{"denoise", at("empty.wav"), old}, 1, "empty.wav: is empty"},
        {{"denoise", at("header.wav"), old}, 1, "header.wav: holds no sound"},
        {{"denoise", at("words.wav"), old}, 1, "words.wav: not a sound file"},
        {{"denoise", at("cut.wav"), old}, 1, "cut.wav: is truncated"},
        {{"denoise", at("long.wav"), old}, 1, "long.wav: is truncated"},
        {{"denoise", at("cut.ogg"), old}, 1, "cut.ogg: is truncated"},
        {{"denoise", at("cut.flac"), old}, 1, "cut.flac: is truncated"},
        {{"denoise", at("bad.flac"), old}, 1, "bad.flac: is truncated or damaged after"},
        {{"vad", at("cut.wav")}, 1, "cut.wav: is truncated"},
        {{"resample", at("cut.flac"), old, "--rate", "8000"}, 1, "cut.flac: is truncated"},
        {{"denoise", at("odd.wav"), at("new.flac")}, 1, "no sound format of that name"},
        {{"report", at("odd.wav"), "-o", old}, 1, "do not take 1 channels at 96001 Hz"},
        {{"denoise", at("huge.w64"), old}, 1, "old.wav: a WAV file holds 4 GiB at most"},
        {{"denoise", "-", at("new.dat"), "--rate", "16000"}, 1, "raw PCM has none"},
        {{"denoise", good, at("loop1.wav")}, 1, "loop1.wav: Too many levels of symbolic links"},
        {{"denoise", at("slow.wav"), old}, 1, "slow.wav: a rate of 4000 Hz"},
        {{"denoise", good, good}, 1, "good.wav: is the input"},
        {{"denoise", good, at("folder/../good.wav")}, 1, "good.wav: is the input"},
        {{"denoise", good, at("link.wav")}, 1, "link.wav: is the input"},
        {{"denoise", at("link.wav"), at("hard.wav")}, 1, "hard.wav: is the input"},
        {{"resample", good, at("link.wav"), "--rate", "8000"}, 1, "link.wav: is the input"},
        {{"denoise", good, old, "--spectrogram", good}, 1, "good.wav: is the input"},
        {{"denoise", good, at("new.wav"), "--spectrogram", at("new.wav")},
         1,
         "new.wav: is the input or the output"},
        {{"denoise", good, "new.wav", "--spectrogram", "./new.wav"}, 1, "is the input or the output"},
        {{"denoise", good, "-", "--spectrogram", "-"}, 2, "--spectrogram"},
        {{"denoise", good, at("folder")}, 1, "folder: is a directory"},
        {{"denoise", good, at("nowhere/out.wav")}, 1, "out.wav: No such file"},
        {{"denoise", good, old, "--spectrogram", at("nowhere/a.png")}, 1, "a.png: No such file"},
        {{"denoise", "-", old, "--rate", "16000"}, 1, "standard input: is empty"},
        {{"denoise", good, "/dev/full"}, 1, "/dev/full: No space left"},
        {{"report", good}, 2, "--output"},
        {{"report", "-", "-o", old}, 2, "--rate"},
        {{"report", good, "-o", "-"}, 2, "--output"},
        {{"report", good, "-o", old, "--size-limit", "0"}, 2, "--size-limit"},
        {{"report", good, "-o", at("link.wav")}, 1, "link.wav: is the input"},
        {{"report", good, "-o", at("folder")}, 1, "folder: is a directory"},
        {{"report", at("cut.flac"), "-o", old}, 1, "cut.flac: is truncated"},
        {{"report", at("nine.wav"), "-o", old}, 1, "do not take 9 channels at 8000 Hz"},
        {{"report", at("wide.wav"), "-o", old, "--size-limit", "1"}, 1, "wide.wav: a page with 6 s"},
        {{"report", "-", "-o", old, "--rate", "16000"}, 1, "standard input: is empty"},
        {{"report", good, "-o", "/dev/full"}, 1, "/dev/full: No space left"},
    };
    for (const auto& c : cases) {
        std::string call;
        for (const std::string& a : c.arguments) call += a + ' ';
        const Result result = run(c.arguments);
        EXPECT_EQ(result.status, c.status) << call << result.err;
        EXPECT_EQ(result.err.compare(0, 6, "vqns: "), 0) << call << result.err;
        EXPECT_NE(result.err.find(c.reason), std::string::npos) << call << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << call << result.err;
        EXPECT_EQ(result.out, "") << call;
        EXPECT_EQ(files(), before) << call;
        EXPECT_EQ(contents(old), "an older result") << call;
    }
    const Result ragged = run({"denoise", "-", "-", "--rate", "16000"}, std::string(1001, 'x'));
    EXPECT_EQ(ragged.status, 1);
    EXPECT_EQ(ragged.out.size(), 1000u) << "whole frames still come out";

    for (const char* name : {"cut.wav", "long.wav", "cut.ogg", "cut.flac", "bad.flac"}) {
        const Result accepted = run({"denoise", "-q", "--accept-truncated", at(name), at("out.wav")});
        EXPECT_EQ(accepted.status, 0) << accepted.err;
        EXPECT_NE(accepted.err.find("using what there is"), std::string::npos) << accepted.err;
        EXPECT_GT(load(at("out.wav")).frames(), 1000u) << name;
    }
}

TEST_F(Tool, FullDiskIsNoticedWhateverTheFormat) {
    Sound noise = tones(16000, 1, 1.2);
    std::mt19937 random(1);
    for (int16_t& x : noise.samples) x = static_cast<int16_t>(random() % 20000);
    save(at("std.wav"), noise);
    const std::string in = at("std.wav");
    for (const char* name : {"out.wav", "out.flac", "out.ogg", "out.opus", "out.mp3", "out.aiff"}) {
        write_text(at(name), "an older result");
        const Result result =
            run({"denoise", "-q", in, at(name), "--attenuation-limit", "0"}, "", "", 3 * 1024);
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_NE(result.err.find(std::string(name) + ": File too large"), std::string::npos) << result.err;
        EXPECT_EQ(contents(at(name)), "an older result") << name;
        EXPECT_EQ(files(), Arguments{name});
        fs::remove(at(name));
    }
    const rlim_t enough_for_the_sound = 39 * 1024;
    const Result picture =
        run({"denoise", "-q", in, at("a.wav"), "--spectrogram", at("a.png")}, "", "", enough_for_the_sound);
    EXPECT_EQ(picture.err, "vqns: " + at("a.png") + ": File too large\n");
    EXPECT_EQ(files(), Arguments{});

    for (const auto& [limit, culprit] : {std::pair<rlim_t, std::string>{3 * 1024, "a temporary file"},
                                         {enough_for_the_sound, at("a.html")}}) {
        const Result page = run({"report", "-q", in, "-o", at("a.html")}, "", "", limit);
        EXPECT_EQ(page.err, "vqns: " + culprit + ": File too large\n");
        EXPECT_EQ(files(), Arguments{});
    }

    for (const Arguments& arguments :
         {Arguments{"denoise", "-q", in, "-"}, {"vad", "-q", kSample}, {"info"}, {"--help"}}) {
        const Result result = run(arguments, "", "/dev/full");
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_EQ(result.err, "vqns: standard output: No space left on device\n") << arguments[0];
    }
}

TEST_F(Tool, SignalsLeaveNoTemporaryFile) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        write_text(at("out.wav"), "an older result");
        int to[2];
        ASSERT_EQ(pipe(to), 0);
        const pid_t child = fork();
        if (child == 0) {
            dup2(to[0], 0);
            close(to[1]);
            become_program({"denoise", "-q", "-", at("out.wav"), "--rate", "16000"});
        }
        close(to[0]);
        for (int i = 0; files().size() < 2 && i < 2000; ++i) usleep(10000);
        EXPECT_EQ(files().size(), 2u) << "a temporary file beside the output";
        kill(child, signal);
        EXPECT_EQ(wait_for(child), -signal);
        close(to[1]);
        EXPECT_EQ(files(), Arguments{"out.wav"});
        EXPECT_EQ(contents(at("out.wav")), "an older result");
    }
}

TEST_F(Tool, ReplacesFilesWithCare) {
    save(at("in.wav"), tones(16000, 1, 0.2));
    write_text(at("real.wav"), "old");
    fs::permissions(at("real.wav"), fs::perms{0640});
    fs::create_symlink("real.wav", folder / "link.wav");
    ASSERT_EQ(run({"denoise", "-q", at("in.wav"), at("link.wav")}).status, 0);
    EXPECT_TRUE(fs::is_symlink(at("link.wav")));
    EXPECT_EQ(fs::status(at("real.wav")).permissions(), fs::perms{0640});
    EXPECT_EQ(load(at("real.wav")).frames(), 3200u);
    if (chown(at("real.wav").c_str(), 1234, 1234) == 0) {  // as root
        ASSERT_EQ(run({"denoise", "-q", at("in.wav"), at("real.wav")}).status, 0);
        struct stat there = {};
        ASSERT_EQ(stat(at("real.wav").c_str(), &there), 0);
        EXPECT_EQ(there.st_uid, 1234u);
    }
    fs::create_symlink("made.wav", folder / "dangling.wav");
    ASSERT_EQ(run({"denoise", "-q", at("in.wav"), at("dangling.wav")}).status, 0);
    EXPECT_TRUE(fs::is_symlink(at("dangling.wav")));
    EXPECT_EQ(load(at("made.wav")).frames(), 3200u);
    const std::string longest(251, 'n');
    EXPECT_EQ(run({"denoise", "-q", at("in.wav"), at(longest + ".wav")}).err, "");
    const mode_t mask = umask(027);
    ASSERT_EQ(run({"denoise", "-q", at("in.wav"), at("new.wav")}).status, 0);
    umask(mask);
    EXPECT_EQ(fs::status(at("new.wav")).permissions(), fs::perms{0640});
}

TEST_F(Tool, FindsSpeechAndWritesItInThreeForms) {
    // Silence around the speech of the sample: what is found lies where the speech is.
    Sound sound = load(kSample);
    sound.samples.resize(4 * 16000);
    sound.samples.insert(sound.samples.begin(), 16000, 0);
    sound.samples.resize(sound.samples.size() + 16000);
    sound.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    const std::string name = at("quote\" back\\slash \xff \n.wav");
    save(name, sound);
    const double duration = static_cast<double>(sound.frames()) / 16000;
    const Json json = parse_json(run({"vad", name, "--format", "json"}).out);
    EXPECT_EQ(json["file"], at("quote\" back\\slash \xef\xbf\xbd \n.wav"));
    EXPECT_NEAR(number(json["duration"]), duration, 1e-6);
    const Json& segments = json["segments"];
    ASSERT_GE(segments.size(), 2u);
    std::istringstream text(run({"vad", name}).out), labels(run({"vad", name, "--format", "labels"}).out);
    double last = 0;
    for (const Json& s : segments) {
        const double start = number(s["start"]), end = number(s["end"]);
        EXPECT_GE(start, std::max(0.9, last == 0 ? 0 : last + 0.3 - 1e-6));
        EXPECT_GE(end, start + 0.1 - 1e-6);
        EXPECT_LT(end, duration - 0.5);
        last = end;
        double a = 0, b = 0;
        ASSERT_TRUE(text >> a >> b);
        EXPECT_NEAR(a, start, 0.0006);
        EXPECT_NEAR(b, end, 0.0006);
        std::string line;
        ASSERT_TRUE(std::getline(labels, line));
        char want[64];
        std::snprintf(want, sizeof want, "%.6f\t%.6f\tspeech", start, end);
        EXPECT_EQ(line, want);
    }
    EXPECT_FALSE(text >> last) << "as many lines as segments";

    const Json joined = parse_json(run({"vad", name, "--format", "json", "--min-pause", "60"}).out);
    ASSERT_EQ(joined["segments"].size(), 1u);
    // Bursts that are too short on their own count when they are joined.
    EXPECT_LE(number(joined["segments"][0]["start"]), number(segments.front()["start"]));
    EXPECT_GE(number(joined["segments"][0]["end"]), number(segments.back()["end"]));
    save(at("short.wav"), tones(16000, 1, 0.2));
    const Result none = run({"vad", at("short.wav"), "--format", "json", "--min-speech", "1"});
    EXPECT_TRUE(parse_json(none.out)["segments"].empty()) << none.out;

    // In one of three channels, raw: the same stretches.
    Pcm three;
    for (const int16_t x : sound.samples) three.insert(three.end(), {0, x, 0});
    EXPECT_EQ(run({"vad", "-", "--rate", "16000", "--channels", "3"}, raw(three)).out, text.str());
}

TEST_F(Tool, ResamplesInPlaceAndInFull) {
    struct {
        int from, to;
    } const cases[] = {{8000, 16000},  {16000, 8000},  {44100, 48000},  {48000, 44100}, {48000, 16000},
                       {22050, 32000}, {11025, 44100}, {24000, 8000},   {16000, 16000}, {44100, 96000},
                       {96000, 44100}, {12000, 16000}, {37800, 191999}, {8000, 48000}};
    for (const auto& c : cases) {
        const Sound in = tones(c.from, 2, 0.61);
        save(at("in.wav"), in);
        const Result result =
            run({"resample", "-q", at("in.wav"), at("out.wav"), "--rate", std::to_string(c.to)});
        ASSERT_EQ(result.status, 0) << result.err;
        const Sound out = load(at("out.wav"));
        EXPECT_EQ(out.rate, c.to);
        EXPECT_EQ(out.channels, 2);
        EXPECT_EQ(out.frames(),
                  static_cast<size_t>(std::llround(static_cast<double>(in.frames()) * c.to / c.from)));
        EXPECT_LT(tone_error_db(out), -45) << c.from << " to " << c.to;
    }
    const Sound in = tones(44100, 2, 0.3);
    const Result piped =
        run({"resample", "-", "-", "--input-rate", "44100", "--channels", "2", "--rate", "8000"},
            {raw(in.samples)});
    EXPECT_LT(tone_error_db({8000, 2, 0, from_raw(piped.out)}), -45);
    const Result slow = run({"resample", "-", "-", "--input-rate", "4000", "--rate", "8000"},
                            raw(tones(4000, 1, 0.3).samples));
    EXPECT_LT(tone_error_db({8000, 1, 0, from_raw(slow.out)}), -45) << slow.err;
    save(at("in.opus"), tones(16000, 1, 0.3, SF_FORMAT_OGG | SF_FORMAT_OPUS));
    const Result coded = run({"resample", "-q", at("in.opus"), at("out.ogg"), "--rate", "44100"});
    EXPECT_EQ(coded.err, "");
    EXPECT_EQ(load(at("out.ogg")).format, SF_FORMAT_OGG | SF_FORMAT_VORBIS) << "Opus has no such rate";
}

TEST_F(Tool, InfoTellsTheDelay) {
    for (const int rate : {16000, 44100, 96000}) {
        const Json json = parse_json(run({"info", "--json", "--rate", std::to_string(rate)}).out);
        const std::unique_ptr<vqns_stream::Stream, void (*)(vqns_stream::Stream*)> stream(
            vqns_stream::open(rate, {}), vqns_stream::close);
        EXPECT_EQ(json["rate"], rate);
        EXPECT_EQ(json["delay_samples"], vqns_stream::latency(stream.get()));
        EXPECT_NEAR(number(json["delay_ms"]), 1000 * number(json["delay_samples"]) / rate, 0.0006);
        EXPECT_GT(json["instance_bytes"], 100000);
        EXPECT_NE(json["model"], "");
        const std::string text = run({"info"}).out;
        for (const char* member : {"version", "model", "processor_level"}) {
            EXPECT_NE(text.find(json[member].get<std::string>()), std::string::npos) << text;
        }
        EXPECT_EQ(run({"--version"}).out, "vqns " + json["version"].get<std::string>() + "\n");
    }
    for (const char* command : {"denoise", "report", "vad", "resample", "info"}) {
        EXPECT_NE(run({"--help"}).out.find(command), std::string::npos);
        EXPECT_NE(run({command, "--help"}).out.find(std::string("Usage: vqns ") + command),
                  std::string::npos);
    }
}

struct Image {
    png_image header = {};
    std::vector<png_byte> rgb;
    explicit Image(const std::string& path) {
        header.version = PNG_IMAGE_VERSION;
        EXPECT_NE(png_image_begin_read_from_file(&header, path.c_str()), 0) << header.message;
        header.format = PNG_FORMAT_RGB;
        rgb.resize(PNG_IMAGE_SIZE(header));
        EXPECT_NE(png_image_finish_read(&header, nullptr, rgb.data(), 0, nullptr), 0) << header.message;
    }
    double light(size_t x, size_t y) const {
        const png_byte* p = &rgb[3 * (y * header.width + x)];
        return 0.3 * p[0] + 0.6 * p[1] + 0.1 * p[2];
    }
    double mean_light(size_t left, size_t top, size_t width, size_t height) const {
        double sum = 0;
        for (size_t y = top; y < top + height; ++y) {
            for (size_t x = left; x < left + width; ++x) sum += light(x, y);
        }
        return sum / static_cast<double>(width * height);
    }
};

TEST_F(Tool, SpectrogramShowsSoundWhereItIs) {
    constexpr size_t kLeft = 90, kWidth = 1060, kTops[] = {50, 460}, kHeight = 350;
    // 2 kHz in the second of four seconds, 5 kHz in the third.
    Sound sound = {16000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16, Pcm(4 * 16000)};
    for (size_t i = 16000; i < 3 * 16000; ++i) {
        const double hz = i < 2 * 16000 ? 2000 : 5000;
        sound.samples[i] =
            static_cast<int16_t>(9000 * std::sin(2 * M_PI * hz * static_cast<double>(i) / 16000));
    }
    save(at("in.wav"), sound);
    ASSERT_EQ(run({"denoise", "-q", "--no-level", "--attenuation-limit", "0", at("in.wav"), at("out.wav"),
                   "--spectrogram", at("a.png")})
                  .status,
              0);
    const Image tones_image(at("a.png"));
    EXPECT_EQ(tones_image.header.width, 1280u);
    EXPECT_EQ(tones_image.header.height, 880u);
    for (const size_t top : kTops) {
        for (const double second : {0.5, 1.5, 2.5, 3.5}) {
            const auto x = kLeft + static_cast<size_t>(second / 4 * kWidth);
            size_t brightest = top;
            for (size_t y = top; y < top + kHeight; ++y) {
                if (tones_image.light(x, y) > tones_image.light(x, brightest)) brightest = y;
            }
            if (second < 1 || second > 3) {
                EXPECT_LT(tones_image.light(x, brightest), 12) << second;
                continue;
            }
            const double hz = (1 - (static_cast<double>(brightest - top) + 0.5) / kHeight) * 8000;
            EXPECT_NEAR(hz, second < 2 ? 2000 : 5000, 35) << second;
            EXPECT_GT(tones_image.light(x, brightest), 150) << second;
        }
    }

    // The tone of the second second lies evenly about its middle.
    const size_t row = kTops[0] + static_cast<size_t>(kHeight * 0.75);
    size_t first = kLeft + kWidth, last = 0;
    for (size_t x = kLeft; x < kLeft + kWidth; ++x) {
        if (tones_image.light(x, row) < 120) continue;
        first = std::min(first, x);
        last = x;
    }
    EXPECT_NEAR(static_cast<double>(first + last) / 2, kLeft + 1.5 / 4 * kWidth, 2);
    EXPECT_NEAR(static_cast<double>(last - first), kWidth / 4, 12);

    ASSERT_EQ(run({"denoise", "-q", kSample, at("out.wav"), "--spectrogram", at("b.png")}).status, 0);
    const Image noisy(at("b.png"));
    const double before = noisy.mean_light(kLeft, kTops[0], kWidth, kHeight);
    const double after = noisy.mean_light(kLeft, kTops[1], kWidth, kHeight);
    EXPECT_GT(before, 1.5 * after);
    EXPECT_GT(after, 5) << "speech is left";
    EXPECT_GT(noisy.mean_light(0, 0, 1280, 40), 200) << "paper";
    EXPECT_LT(noisy.mean_light(0, 815, 1280, 60), 254) << "an axis";
}

// Elements open and close in order, attributes have quotes, and every name of an element is there once.
void expect_well_formed(const std::string& page) {
    const std::string empty[] = {"!DOCTYPE", "meta", "link", "img", "input"};
    std::vector<std::string> open;
    std::map<std::string, int> ids;
    for (size_t at = 0; (at = page.find('<', at)) != std::string::npos;) {
        const size_t end = page.find('>', at);
        ASSERT_NE(end, std::string::npos);
        const std::string tag = page.substr(at + 1, end - at - 1),
                          name = tag.substr(0, tag.find_first_of(" /", 1));
        EXPECT_EQ(std::count(tag.begin(), tag.end(), '"') % 2, 0) << tag.substr(0, 80);
        const size_t id = tag.find(" id=\"");
        if (id != std::string::npos) ++ids[tag.substr(id + 5, tag.find('"', id + 5) - id - 5)];
        if (tag[0] == '/') {
            ASSERT_FALSE(open.empty());
            EXPECT_EQ(tag.substr(1), open.back()) << page.substr(at, 80);
            open.pop_back();
        } else if (tag.back() != '/' &&
                   std::find(std::begin(empty), std::end(empty), name) == std::end(empty)) {
            open.push_back(name);
        }
        const bool raw = tag == "style" || tag == "script";
        at = raw ? page.find("</" + tag, end) : end;
    }
    EXPECT_EQ(open, Arguments{});
    for (const auto& [id, count] : ids) EXPECT_EQ(count, 1) << id;
    EXPECT_GE(ids.size(), 10u);
}

TEST_F(Tool, ReportIsAWholePageOfAnything) {
    // In a folder, whose name does not belong on the page.
    fs::create_directory(folder / "<script>");
    const std::string in = at("<script>/\xff\n\xc2\x9b<i>\"'&amp;{{style}}.wav");
    const std::string mark = "\xef\xbf\xbd";
    const std::string name = mark + mark + mark + "&lt;i&gt;&quot;&#39;&amp;amp;{{style}}.wav";
    const int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    struct {
        Sound sound;
        const char* shown;
    } const cases[] = {{{8000, 1, format, Pcm(1, 1000)}, "0.00 s, 8000 Hz, 1 channel."},
                       {{192000, 2, format, Pcm(2 * 19200)}, "<td>digital silence</td>"},
                       {tones(44100, 6, 0.5), "0.50 s, 44100 Hz, 6 channels. "}};
    for (const auto& c : cases) {
        save(in, c.sound);
        const Result result = run({"report", "-q", in, "-o", at("a.html"), "--attenuation-limit", "9"});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        const std::string page = contents(at("a.html"));
        expect_well_formed(page);
        EXPECT_NE(page.find("<title>" + name + "</title>"), std::string::npos);
        EXPECT_NE(page.find(c.shown), std::string::npos) << c.shown;
        EXPECT_NE(page.find("<dd>9 dB</dd>"), std::string::npos);
        EXPECT_EQ(page.find("<script>"), page.rfind("<script>"));
        std::string words = page;  // without what is coded in base64
        for (size_t code = 0; (code = words.find(";base64,", code)) != std::string::npos; ++code) {
            words.erase(code, words.find('"', code) - code);
        }
        for (const char* wrong : {"nan", "inf%", ">inf", "-inf", "\"inf"}) {
            EXPECT_EQ(words.find(wrong), std::string::npos) << wrong;
        }
    }
    const Result piped = run({"report", "-", "-o", at("b.html"), "--rate", "8000", "--channels", "2"},
                             raw(tones(8000, 2, 0.4).samples));
    EXPECT_NE(piped.err.find("sound as FLAC"), std::string::npos) << piped.err;
    EXPECT_NE(contents(at("b.html")).find("<title>standard input</title>"), std::string::npos);
}

TEST_F(Tool, BarAppearsOnATerminalAlone) {
    save(at("in.wav"), tones(16000, 1, 1));
    const std::string bytes = contents(at("in.wav"));
    ASSERT_EQ(mkfifo(at("slow.wav").c_str(), 0600), 0);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) GTEST_SKIP() << "this machine has no pseudo-terminals (is /dev/pts mounted?)";
    if (child == 0) become_program({"denoise", at("slow.wav"), at("out.wav")});
    std::thread writer([&] {
        std::ofstream slow(at("slow.wav"), std::ios::binary);
        slow.write(bytes.data(), 12000).flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        slow.write(bytes.data() + 12000, static_cast<std::streamsize>(bytes.size()) - 12000);
    });
    std::string seen;
    char block[4096];
    for (ssize_t n; (n = read(terminal, block, sizeof block)) > 0;)
        seen.append(block, static_cast<size_t>(n));
    writer.join();
    close(terminal);
    EXPECT_EQ(wait_for(child), 0) << seen;
    EXPECT_NE(seen.find(" %, 0:0"), std::string::npos) << seen;
    EXPECT_NE(seen.find("[#"), std::string::npos) << seen;
    EXPECT_LT(seen.rfind("[#"), seen.find("real-time factor")) << "gone before the summary";
    EXPECT_EQ(run({"denoise", at("in.wav"), at("out.wav")}).err.find('\r'), std::string::npos);
}

}  // namespace
