// progress.h - a bar on standard error for work that takes long, when somebody can see it.
#ifndef VQNS_PROGRESS_H
#define VQNS_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace vqns_tool {

struct Progress {
    int64_t total = -1;  // below 1: no bar
    bool visible = false;
    bool drawn = false;
    std::chrono::steady_clock::time_point start, next;

    Progress(int64_t total_frames, bool quiet);
    ~Progress();  // wipes the bar
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
};

void show_progress(Progress& progress, int64_t done);

double seconds_since(std::chrono::steady_clock::time_point start);

}  // namespace vqns_tool

#endif
