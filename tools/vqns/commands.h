// commands.h - what the program does, one function a subcommand. All throw Failure.
#ifndef VQNS_COMMANDS_H
#define VQNS_COMMANDS_H

#include <string>

#include "audio_input.h"
#include "denoising.h"
#include "segments_text.h"
#include "vqns_channels.h"

namespace vqns_tool {

struct DenoiseOptions : DenoisingOptions {
    std::string out;
    bool constant_delay = false;  // raw output only: lead-in silence instead of alignment
    std::string spectrogram;      // PNG to write; empty: none
};
void denoise(const DenoiseOptions& options);

struct ReportOptions : DenoisingOptions {
    std::string out;
    double size_limit = 32;  // MB
};
void report(const ReportOptions& options);

struct VadOptions {
    std::string in;
    RawFormat raw;
    int mode = 2;
    double min_pause = 0.3, min_speech = 0.1;  // seconds
    SegmentFormat format = SegmentFormat::kText;
    bool accept_truncated = false;
    bool quiet = false;
};
void vad(const VadOptions& options);

struct ResampleOptions {
    std::string in, out;
    RawFormat raw;
    int rate = 0;
    bool accept_truncated = false;
    bool quiet = false;
};
void resample(const ResampleOptions& options);

struct InfoOptions {
    int rate = 16000;
    bool json = false;
};
void info(const InfoOptions& options);

// As its namesake; fails in the name of `input_name`.
vqns_stream::Channels open_channels(const std::string& input_name, int rate, int channels,
                                    const vqns_stream::Options& options);

// Writes to standard output, where a full disk may lie behind.
void print_result(const std::string& text);

}  // namespace vqns_tool

#endif
