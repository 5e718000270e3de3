#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace vqns_tool {
namespace {

constexpr int kWidth = 40;
constexpr std::chrono::milliseconds kPatience(1000), kInterval(100);

}  // namespace

Progress::Progress(int64_t total_frames, bool quiet)
    : total(total_frames),
      visible(!quiet && total_frames > 0 && isatty(STDERR_FILENO) != 0),
      start(std::chrono::steady_clock::now()),
      next(start + kPatience) {}

Progress::~Progress() {
    if (drawn) std::fputs("\r\033[K", stderr);
}

void show_progress(Progress& progress, int64_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (!progress.visible || now < progress.next || done < 1) return;
    progress.next = now + kInterval;
    progress.drawn = true;
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(progress.total));
    const auto filled = static_cast<size_t>(kWidth * share);
    const double left = seconds_since(progress.start) * (1 - share) / share;
    std::fprintf(stderr, "\r[%s%s] %3.0f %%, %d:%02d left\033[K", std::string(filled, '#').c_str(),
                 std::string(kWidth - filled, '.').c_str(), 100 * share, static_cast<int>(left) / 60,
                 static_cast<int>(left) % 60);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace vqns_tool
