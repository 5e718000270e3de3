// report_page.h - the text of a report: one page of HTML that needs nothing beside itself.
#ifndef VQNS_REPORT_PAGE_H
#define VQNS_REPORT_PAGE_H

#include <string>
#include <vector>

#include "denoising.h"
#include "level_curve.h"
#include "page_sound.h"
#include "speech_segments.h"

namespace vqns_tool {

struct ReportContents {
    const DenoisingOptions& options;
    const Denoising& denoising;
    std::vector<vqns_stream::Segment> speech;
    LevelPoints levels;
    double lowest_level;        // of `levels`, in dB
    std::string before, after;  // spectrograms, as PNG files
    int picture_width, picture_height;
    double brightest;  // dBFS of the spectrograms' brightest colour
};

// What stands before, between and behind the data: URIs of the sound before and of the sound after.
struct ReportText {
    std::string head, middle, tail;
};
ReportText report_text(const ReportContents& contents, Coding coding);

}  // namespace vqns_tool

#endif
