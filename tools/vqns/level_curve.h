// level_curve.h - the level of a recording over time, before and after.
#ifndef VQNS_LEVEL_CURVE_H
#define VQNS_LEVEL_CURVE_H

#include <vector>

#include "vqns_stream.h"

namespace vqns_tool {

// Mean power of hops of 10 ms relative to full scale, summed over channels.
struct LevelCurve {
    double first = 0;  // time of hop 0
    std::vector<float> before, after;
};

void add_hop(LevelCurve& curve, const vqns_stream::Hop& hop);

struct LevelPoint {
    double time;           // middle of the piece, in seconds
    double before, after;  // root mean square over the piece and the channels in dB below full scale
};
struct LevelPoints {
    double piece = 0;  // seconds
    std::vector<LevelPoint> points;
};

// At most `most` points, each over as many hops as that takes. Hops that are not wholly within 0..duration
// do not count. No level is below `lowest`.
LevelPoints level_points(const LevelCurve& curve, int channels, double duration, int most, double lowest);

}  // namespace vqns_tool

#endif
