// segments_text.h - the forms in which stretches of speech are written.
#ifndef VQNS_SEGMENTS_TEXT_H
#define VQNS_SEGMENTS_TEXT_H

#include <string>
#include <vector>

#include "speech_segments.h"

namespace vqns_tool {

using vqns_stream::Segment;

enum class SegmentFormat { kText, kJson, kLabels };

// kText: a line a segment, start and end in seconds. kJson: one object. kLabels: start, end and a label,
// separated by tabs, as audio editors import them.
std::string format_segments(const std::vector<Segment>& segments, SegmentFormat format,
                            const std::string& name, double duration);

}  // namespace vqns_tool

#endif
