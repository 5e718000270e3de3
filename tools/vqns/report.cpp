#include <algorithm>
#include <cstdio>

#include "colour_map.h"
#include "commands.h"
#include "failure.h"
#include "report_page.h"
#include "text.h"

namespace vqns_tool {
namespace {

enum { kPictureWidth = 1080, kPictureHeight = 270, kMostLevelPoints = 540 };
constexpr double kLowestLevel = -100, kMinPause = 0.3, kMinSpeech = 0.1;  // dB; seconds

// One of the two sounds of a report.
struct Half {
    Spectrogram spectrogram;
    PageSound sound;
};

void open_half(Half& half, const AudioInput& input) {
    open_spectrogram(half.spectrogram, input.rate, input.channels);
    open_page_sound(half.sound, Coding::kFlac, input.rate, input.channels);
}

void add_frames(Half& half, const int16_t* frames, int64_t count) {
    add_sound(half.spectrogram, frames, count);
    write_frames(half.sound.output, frames, count);
}

void draw(ReportContents& contents, Half& before, Half& after, double duration) {
    std::vector<double> pixels[2], all;
    Half* const halves[] = {&before, &after};
    for (int i = 0; i < 2; ++i) {
        end_sound(halves[i]->spectrogram);
        pixels[i] = pixel_levels(halves[i]->spectrogram, kPictureWidth, kPictureHeight, duration);
        all.insert(all.end(), pixels[i].begin(), pixels[i].end());
    }
    contents.brightest = brightest_level(std::move(all));
    std::string* const pictures[] = {&contents.before, &contents.after};
    for (int i = 0; i < 2; ++i) {
        Picture picture(kPictureWidth, kPictureHeight, {0, 0, 0});
        draw_levels(picture, 0, 0, kPictureWidth, pixels[i], contents.brightest);
        *pictures[i] = png_of(picture);
    }
}

double megabytes(const ReportText& text, const Half& before, const Half& after) {
    const size_t fixed = text.head.size() + text.middle.size() + text.tail.size();
    return 1e-6 * (static_cast<double>(fixed) + static_cast<double>(data_uri_size(before.sound)) +
                   static_cast<double>(data_uri_size(after.sound)));
}

// The page's text for sound that fits under the limit, without loss if it can be.
ReportText fitting_text(const ReportContents& contents, Half& before, Half& after, double limit) {
    const AudioInput& input = contents.denoising.input;
    ReportText text = report_text(contents, Coding::kFlac);
    if (megabytes(text, before, after) <= limit) return text;
    if (can_code(Coding::kMp3, input.rate, input.channels)) {
        for (Half* half : {&before, &after}) recode(half->sound, Coding::kMp3);
        text = report_text(contents, Coding::kMp3);
    }
    const double size = megabytes(text, before, after);
    if (size <= limit) return text;
    fail(input.name,
         print("a page with %.0f s of this sound takes %.1f MB, and the limit is %g MB (--size-limit)",
               seconds_read(input), size, limit));
}

}  // namespace

void report(const ReportOptions& options) {
    if (options.in != "-" && same_file(options.in, options.out)) fail(options.out, "is the input");
    Denoising denoising;
    open_denoising(denoising, options);
    const AudioInput& input = denoising.input;
    if (!can_code(Coding::kFlac, input.rate, input.channels)) {
        fail(input.name,
             print("the players of a page do not take %d channels at %d Hz", input.channels, input.rate));
    }
    ReplacedFile file;
    open_replaced(file, options.out);
    Half before, after;
    open_half(before, input);
    open_half(after, input);
    vqns_stream::SpeechHops speech;
    LevelCurve curve;
    denoising.before = [&](const int16_t* frames, int64_t count) { add_frames(before, frames, count); };
    denoising.after = [&](const int16_t* frames, int64_t count) { add_frames(after, frames, count); };
    denoising.hop = [&](const vqns_stream::Hop& hop) {
        add_hop(speech, hop);
        add_hop(curve, hop);
    };
    run_denoising(denoising, options.quiet);
    check_end(input);
    close_page_sound(before.sound);
    close_page_sound(after.sound);

    const double duration = seconds_read(input);
    ReportContents contents = {options,
                               denoising,
                               tidy(segments_of(speech), duration, kMinPause, kMinSpeech),
                               level_points(curve, input.channels, duration, kMostLevelPoints, kLowestLevel),
                               kLowestLevel,
                               {},
                               {},
                               kPictureWidth,
                               kPictureHeight,
                               0};
    draw(contents, before, after, duration);
    const ReportText text = fitting_text(contents, before, after, options.size_limit);
    write_bytes(file, text.head);
    write_data_uri(file, before.sound);
    write_bytes(file, text.middle);
    write_data_uri(file, after.sound);
    write_bytes(file, text.tail);
    commit(file);
    if (options.quiet) return;
    summarise(denoising, options.out, denoising.seconds);
    std::fprintf(stderr, "  page           %.2f MB, sound as %s\n", megabytes(text, before, after),
                 before.sound.coding == Coding::kFlac ? "FLAC" : "MP3");
}

}  // namespace vqns_tool
