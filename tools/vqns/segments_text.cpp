#include "segments_text.h"

#include "text.h"

namespace vqns_tool {

std::string format_segments(const std::vector<Segment>& segments, SegmentFormat format,
                            const std::string& name, double duration) {
    std::string text;
    switch (format) {
        case SegmentFormat::kText:
            for (const Segment& s : segments) text += print("%.3f %.3f\n", s.start, s.end);
            break;
        case SegmentFormat::kLabels:
            for (const Segment& s : segments) text += print("%.6f\t%.6f\tspeech\n", s.start, s.end);
            break;
        case SegmentFormat::kJson:
            text =
                "{\"file\": " + json_string(name) + print(", \"duration\": %.6f, \"segments\": [", duration);
            for (const Segment& s : segments) {
                text += print("%s\n  {\"start\": %.6f, \"end\": %.6f}", &s == segments.data() ? "" : ",",
                              s.start, s.end);
            }
            text += segments.empty() ? "]}\n" : "\n]}\n";
            break;
    }
    return text;
}

}  // namespace vqns_tool
