// axis.h - where the marks of an axis stand and what is written beside them.
#ifndef VQNS_AXIS_H
#define VQNS_AXIS_H

#include <string>
#include <vector>

namespace vqns_tool {

struct Tick {
    double share;  // of the axis, from 0 at its start to 1
    std::string label;
};

// From 0 to `span`, steps of 1, 2 or 5 times a power of ten, about `most` of them or fewer.
std::vector<Tick> number_ticks(double span, double most);

// The same in units of clocks: seconds up to a minute, then minutes and seconds, then hours and minutes.
std::vector<Tick> time_ticks(double duration);
const char* time_unit(double duration);  // "Time (s)"

}  // namespace vqns_tool

#endif
