#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <new>
#include <sstream>

#include "commands.h"
#include "failure.h"
#include "resampler.h"
#include "vq_ns.h"
#include "vqns_stream.h"

namespace {

using namespace vqns_tool;

enum { kFailed = 1, kMisused = 2 };

// A number from low to high. Says so in one line, and nothing in the help text.
CLI::Validator between(double low, double high) {
    const auto check = [low, high](const std::string& text) {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high) return std::string();
        char reason[80];
        std::snprintf(reason, sizeof reason, "must be a number from %g to %g", low, high);
        return std::string(reason);
    };
    return CLI::Validator(check, "");
}

void add_raw_options(CLI::App& command, RawFormat& raw, const char* rate_name,
                     const CLI::Validator& is_rate = between(vqns_stream::kLowestRate,
                                                             vqns_stream::kHighestRate)) {
    command.add_option(rate_name, raw.rate, "Sampling rate of raw PCM on standard input, in Hz")
        ->type_name("HZ")
        ->check(is_rate);
    command.add_option("--channels", raw.channels, "Channels of raw PCM on standard input (default 1)")
        ->type_name("N")
        ->check(between(1, 1024));
}

void add_common_options(CLI::App& command, std::string& in, bool& accept_truncated, bool& quiet) {
    command
        .add_option("IN", in, "Sound file, or - for raw PCM (signed 16 bit, little-endian) on standard input")
        ->required()
        ->type_name("");
    command.add_flag("--accept-truncated", accept_truncated,
                     "Use what there is of a file that is cut short or damaged, with a warning");
    command.add_flag("--quiet,-q", quiet, "No progress bar and no summary");
}

void add_output(CLI::App& command, std::string& out) {
    command.add_option("OUT", out, "Sound file to write, or - for raw PCM on standard output")
        ->required()
        ->type_name("");
}

// Raw PCM says nothing about itself; files say everything.
void check_raw(const std::string& in, RawFormat& raw, const char* rate_name) {
    if (in != "-" && (raw.rate != 0 || raw.channels != 0)) {
        throw CLI::ValidationError(std::string(rate_name) +
                                   " and --channels describe raw PCM on standard input");
    }
    if (in == "-" && raw.rate == 0) {
        throw CLI::ValidationError(std::string("raw PCM on standard input needs ") + rate_name);
    }
    if (raw.channels == 0) raw.channels = 1;
}

void add_denoising_options(CLI::App& command, DenoisingOptions& options) {
    add_raw_options(command, options.raw, "--rate");
    command
        .add_option("--attenuation-limit", options.attenuation_limit,
                    "Turn noise down by this much at most (default: no limit); 0 takes none out")
        ->type_name("DB")
        ->check(between(0, 1000));
    command.add_flag("--level,!--no-level", options.level, "Bring speech to an even level (default: yes)");
}

// What is written to it is not sound.
void check_is_file(const std::string& name, const char* option) {
    if (name == "-") throw CLI::ValidationError(std::string(option) + " is a file, not standard output");
}

void add_denoise(CLI::App& app, DenoiseOptions& options) {
    CLI::App& command = *app.add_subcommand("denoise", "Take the noise out of speech");
    add_common_options(command, options.in, options.accept_truncated, options.quiet);
    add_output(command, options.out);
    add_denoising_options(command, options);
    command.add_flag("--constant-delay", options.constant_delay,
                     "For raw output: a frame for every frame read, beginning with silence, and no flush");
    command
        .add_option("--spectrogram", options.spectrogram, "Draw sound before and after into this PNG file")
        ->type_name("PNG");
    command.callback([&options] {
        check_raw(options.in, options.raw, "--rate");
        if (options.constant_delay && options.out != "-") {
            throw CLI::ValidationError("--constant-delay goes with raw PCM on standard output");
        }
        check_is_file(options.spectrogram, "--spectrogram");
        denoise(options);
    });
}

void add_report(CLI::App& app, ReportOptions& options) {
    CLI::App& command =
        *app.add_subcommand("report", "Show a recording before and after in one page for a browser");
    add_common_options(command, options.in, options.accept_truncated, options.quiet);
    command.add_option("-o,--output", options.out, "HTML file to write")->type_name("HTML")->required();
    add_denoising_options(command, options);
    command
        .add_option("--size-limit", options.size_limit,
                    "Largest page (default 32); sound is coded as MP3 where it would take more as FLAC")
        ->type_name("MB")
        ->check(between(1, 1000));
    command.callback([&options] {
        check_raw(options.in, options.raw, "--rate");
        check_is_file(options.out, "--output");
        report(options);
    });
}

SegmentFormat format_named(const std::string& name) {
    if (name == "text") return SegmentFormat::kText;
    if (name == "json") return SegmentFormat::kJson;
    if (name == "labels") return SegmentFormat::kLabels;
    throw CLI::ValidationError("--format: must be text, json or labels");
}

void add_vad(CLI::App& app, VadOptions& options, std::string& format) {
    CLI::App& command = *app.add_subcommand("vad", "Find the stretches of speech");
    add_common_options(command, options.in, options.accept_truncated, options.quiet);
    add_raw_options(command, options.raw, "--rate");
    command
        .add_option("--mode", options.mode, "0: miss least speech ... 3: let least noise through (default 2)")
        ->type_name("0..3")
        ->check(between(0, 3));
    command.add_option("--format", format, "text, json or labels (default text)")->type_name("FORMAT");
    command.add_option("--min-pause", options.min_pause, "Bridge shorter pauses (default 0.3)")
        ->type_name("S")
        ->check(between(0, 3600));
    command
        .add_option("--min-speech", options.min_speech, "Leave out shorter stretches of speech (default 0.1)")
        ->type_name("S")
        ->check(between(0, 3600));
    command.callback([&options, &format] {
        check_raw(options.in, options.raw, "--rate");
        options.format = format_named(format);
        vad(options);
    });
}

void add_resample(CLI::App& app, ResampleOptions& options) {
    CLI::App& command = *app.add_subcommand("resample", "Change the sampling rate");
    add_common_options(command, options.in, options.accept_truncated, options.quiet);
    add_output(command, options.out);
    const CLI::Validator is_rate = between(vqns_stream::kLowestNewRate, vqns_stream::kHighestNewRate);
    command.add_option("--rate", options.rate, "New sampling rate, in Hz")
        ->type_name("HZ")
        ->check(is_rate)
        ->required();
    add_raw_options(command, options.raw, "--input-rate", is_rate);
    command.callback([&options] {
        check_raw(options.in, options.raw, "--input-rate");
        resample(options);
    });
}

void add_info(CLI::App& app, InfoOptions& options) {
    CLI::App& command = *app.add_subcommand("info", "Tell version, model, processor level and delay");
    command.add_option("--rate", options.rate, "Tell the delay at this rate (default 16000)")
        ->type_name("HZ")
        ->check(between(vqns_stream::kLowestRate, vqns_stream::kHighestRate));
    command.add_flag("--json", options.json, "As a JSON object");
    command.callback([&options] { info(options); });
}

int give_up(int status, const std::string& reason) {
    std::fprintf(stderr, "vqns: %s\n", reason.c_str());
    return status;
}

int run(int argc, char** argv) {
    CLI::App app("Noise suppression, levelling and rate conversion for recorded and live speech.", "vqns");
    app.set_version_flag("--version,-V", std::string("vqns ") + vqns_version());
    app.require_subcommand(0, 1);
    DenoiseOptions denoise_options;
    ReportOptions report_options;
    VadOptions vad_options;
    ResampleOptions resample_options;
    InfoOptions info_options;
    add_denoise(app, denoise_options);
    add_report(app, report_options);
    std::string vad_format = "text";
    add_vad(app, vad_options, vad_format);
    add_resample(app, resample_options);
    add_info(app, info_options);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream text;
            app.exit(error, text, text);
            print_result(text.str());
            return 0;
        }
        return give_up(kMisused, std::string(error.what()) + " (see vqns --help)");
    }
    return 0;
}

}  // namespace

namespace vqns_tool {

vqns_stream::Channels open_channels(const std::string& input_name, int rate, int channels,
                                    const vqns_stream::Options& options) {
    try {
        return vqns_stream::open_channels(rate, channels, options);
    } catch (const std::runtime_error& error) {
        fail(input_name, error.what());
    }
}

void print_result(const std::string& text) {
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0) fail("standard output", system_reason(errno));
}

}  // namespace vqns_tool

// The next file opened would take the place of a standard stream that is closed, and our messages with it.
void occupy_standard_streams() {
    constexpr int kUseless[] = {O_WRONLY, O_RDONLY, O_RDONLY};
    for (int stream = 0; stream < 3; ++stream) {
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", kUseless[stream]);
    }
}

int main(int argc, char** argv) {
    occupy_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is a failed write like any other
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        return give_up(kFailed, "out of memory");
    } catch (const std::exception& error) {
        return give_up(kFailed, error.what());
    }
}
