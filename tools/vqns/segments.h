// segments.h - stretches of speech, and the forms in which they are written.
#ifndef VQNS_SEGMENTS_H
#define VQNS_SEGMENTS_H

#include <string>
#include <vector>

namespace vqns_tool {

struct Segment {
    double start, end;  // seconds
};

// In order of time. Pauses shorter than min_pause are bridged first; what is then shorter than min_speech is
// left out. Segments are cut to 0..duration.
std::vector<Segment> tidy(const std::vector<Segment>& raw, double duration, double min_pause,
                          double min_speech);

enum class SegmentFormat { kText, kJson, kLabels };

// kText: a line a segment, start and end in seconds. kJson: one object. kLabels: start, end and a label,
// separated by tabs, as audio editors import them.
std::string format_segments(const std::vector<Segment>& segments, SegmentFormat format,
                            const std::string& name, double duration);

// As a JSON string, quotes included. Bytes that are not UTF-8 become U+FFFD.
std::string json_string(const std::string& text);

}  // namespace vqns_tool

#endif
