#include "report_page.h"

#include <cmath>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string_view>

#include "axis.h"
#include "colour_map.h"
#include "report_files.h"
#include "text.h"
#include "vq_ns.h"
#include "vq_ns_model.h"

namespace vqns_tool {
namespace {

constexpr double kAcross = 1000;  // width of every chart's coordinates
constexpr const char* kBandwidth =
    " The suppressor works at 16 kHz: nothing of what the recording has above 8 kHz is in the sound after.";
constexpr const char* kMinus = "\xe2\x88\x92";

using Values = std::map<std::string, std::string, std::less<>>;

// Puts the values where {{their names}} stand. What is filled in is not searched.
std::string filled(std::string_view form, const Values& values) {
    std::string text;
    for (;;) {
        const size_t open = form.find("{{");
        text += form.substr(0, open);
        if (open == form.npos) return text;
        const size_t close = form.find("}}", open);
        const auto value = values.find(form.substr(open + 2, close - open - 2));
        if (value == values.end()) throw std::logic_error("a report has no such value");
        text += value->second;
        form.remove_prefix(close + 2);
    }
}

std::string with_minus(std::string text) {
    return !text.empty() && text[0] == '-' ? kMinus + text.substr(1) : text;
}

std::string whole_number(double value) {
    return with_minus(print("%.0f", value + 0.0));
}

std::string duration_text(double seconds) {
    const auto whole = static_cast<long>(std::lround(seconds));
    std::string text = print("%.2f s", seconds);
    if (whole >= 3600) return text + print(" (%ld:%02ld:%02ld)", whole / 3600, whole / 60 % 60, whole % 60);
    return whole >= 60 ? text + print(" (%ld:%02ld)", whole / 60, whole % 60) : text;
}

std::string clock_text(double seconds) {
    const auto tenths = static_cast<long>(std::lround(seconds * 10));
    return print("%ld:%02ld.%ld", tenths / 600, tenths / 10 % 60, tenths % 10);
}

std::string counted(size_t count, const char* one, const char* more) {
    return std::to_string(count) + ' ' + (count == 1 ? one : more);
}

std::string channels_text(const AudioInput& input) {
    return counted(static_cast<size_t>(input.channels), "channel", "channels");
}

std::string scale(const std::vector<Tick>& ticks, const char* unit, bool rising) {
    std::string text = "<div class=\"scale\" aria-hidden=\"true\">";
    for (const Tick& tick : ticks) {
        text += print("<span style=\"top:%.2f%%\">%s</span>", 100 * (rising ? 1 - tick.share : tick.share),
                      tick.label.c_str());
    }
    return text + "<b>" + unit + "</b></div>";
}

std::string time_scale(double duration) {
    std::string text = "<div class=\"times\" aria-hidden=\"true\">";
    int index = 0;
    for (const Tick& tick : time_ticks(duration)) {
        const char* kind = tick.share > 0.96 ? " class=\"last\"" : index % 2 == 1 ? " class=\"odd\"" : "";
        text += print("<span%s style=\"left:%.3f%%\">%s</span>", kind, 100 * tick.share, tick.label.c_str());
        ++index;
    }
    return text + "<b>" + time_unit(duration) + "</b></div>";
}

// The stretches as rectangles from 0 down to `height`.
std::string speech_path(const ReportContents& c, double duration, int height) {
    std::string path;
    for (const vqns_stream::Segment& s : c.speech) {
        const double width = (s.end - s.start) / duration * kAcross;
        path += print("M%.2f 0h%.2fv%dh-%.2fz", s.start / duration * kAcross, width, height, width);
    }
    return path;
}

std::string speech_strip(const ReportContents& c, double duration) {
    return print(
               "<div class=\"strip\"><span aria-hidden=\"true\">speech</span><svg viewBox=\"0 0 %.0f 1\" "
               "preserveAspectRatio=\"none\" role=\"img\" aria-label=\"%s of speech, %.0f %% of the time\">",
               kAcross, counted(c.speech.size(), "stretch", "stretches").c_str(),
               100 * speech_share(c.denoising.meter)) +
           "<path d=\"" + speech_path(c, duration, 1) + "\"/></svg></div>";
}

std::vector<Tick> level_ticks(double lowest) {
    std::vector<Tick> ticks;
    for (int level = 0; level >= static_cast<int>(lowest); level -= 20) {
        ticks.push_back({level / lowest, whole_number(level)});
    }
    return ticks;
}

std::string level_line(const ReportContents& c, double duration, const char* which,
                       double LevelPoint::*level) {
    std::string path;
    for (const LevelPoint& point : c.levels.points) {
        path +=
            print("%c%.2f %.2f", path.empty() ? 'M' : 'L', point.time / duration * kAcross, -(point.*level));
    }
    return print("<path class=\"line %s\" d=\"", which) + path + "\"/>\n";
}

std::string level_chart(const ReportContents& c, double duration) {
    const auto height = static_cast<int>(-c.lowest_level);
    std::string chart = print(
        "<svg viewBox=\"0 0 %.0f %d\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"Level before "
        "and after over time, from %s to 0 dBFS. Speech: %s before, %s after. Pauses: %s before, %s "
        "after.\">\n",
        kAcross, height, whole_number(c.lowest_level).c_str(),
        dbfs(level_before(c.denoising.meter.speech)).c_str(),
        dbfs(level_after(c.denoising.meter.speech)).c_str(),
        dbfs(level_before(c.denoising.meter.pauses)).c_str(),
        dbfs(level_after(c.denoising.meter.pauses)).c_str());
    chart +=
        "<path class=\"bands\" d=\"" + speech_path(c, duration, height) + "\"/>\n<path class=\"grid\" d=\"";
    for (int y = 20; y < height; y += 20) chart += print("M0 %dh%.0f", y, kAcross);
    return chart + "\"/>\n" + level_line(c, duration, "before", &LevelPoint::before) +
           level_line(c, duration, "after", &LevelPoint::after) + "</svg>";
}

std::string colours() {
    constexpr int kStops = 16;
    std::string text;
    for (int i = 0; i <= kStops; ++i) {
        const Colour c = shade(static_cast<double>(i) / kStops);
        text += print("%s#%02x%02x%02x", i == 0 ? "" : ",", c.red, c.green, c.blue);
    }
    return text;
}

std::string level_cells(const LevelMeter::Sum& sum) {
    if (sum.hops == 0) return "<td colspan=\"3\">none found</td>";
    return "<td>" + with_minus(dbfs(level_before(sum))) + "</td><td>" + with_minus(dbfs(level_after(sum))) +
           "</td><td>" + describe_change(sum) + "</td>";
}

std::string summary(const ReportContents& c) {
    const AudioInput& input = c.denoising.input;
    const std::string speech =
        c.denoising.meter.speech.hops > 0 ? describe_change(c.denoising.meter.speech) : "";
    const std::string pauses =
        c.denoising.meter.pauses.hops > 0 ? describe_change(c.denoising.meter.pauses) : "";
    std::string text =
        duration_text(seconds_read(input)) + print(", %d Hz, ", input.rate) + channels_text(input);
    if (!pauses.empty()) text += ". Speech pauses are " + pauses;
    if (!speech.empty()) text += (pauses.empty() ? ". Speech is " : ", speech is ") + speech;
    return text + '.';
}

std::string figures(const ReportContents& c, Coding coding) {
    const Denoising& d = c.denoising;
    const double duration = seconds_read(d.input);
    const int64_t delay = latency(d.streams);
    const std::pair<const char*, std::string> rows[] = {
        {"Duration", duration_text(duration)},
        {"Sampling rate", print("%d Hz", d.input.rate)},
        {"Channels", std::to_string(d.input.channels)},
        {"Share of speech", print("%.0f %%", 100 * speech_share(d.meter))},
        {"Attenuation limit",
         std::isinf(c.options.attenuation_limit) ? "none" : print("%g dB", c.options.attenuation_limit)},
        {"Levelling", c.options.level ? "on" : "off"},
        {"Time taken", print("%.2f s", d.seconds)},
        {"Real-time factor", print("%.3f", d.seconds / duration)},
        {"Delay of a live stream",
         print("%.1f ms (%lld samples)", 1000.0 * static_cast<double>(delay) / d.input.rate,
               static_cast<long long>(delay))},
        {"Version", std::string("vqns ") + vqns_version()},
        {"Model", vqns_model_id()},
        {"Sound in this page", coding == Coding::kFlac ? "FLAC, 16 bit, without loss"
                                                       : "MP3, coded with loss to keep the page small"},
    };
    std::string text;
    for (const auto& [name, value] : rows) {
        text += print("<div><dt>%s</dt><dd>%s</dd></div>\n", name, html_text(value).c_str());
    }
    return text;
}

}  // namespace

ReportText report_text(const ReportContents& c, Coding coding) {
    const AudioInput& input = c.denoising.input;
    const double duration = seconds_read(input), top = input.rate / 2000.0;
    const bool named = c.options.in != "-";
    std::string stretches;
    for (const vqns_stream::Segment& s : c.speech) {
        stretches += "<li>" + clock_text(s.start) + " to " + clock_text(s.end) + "</li>\n";
    }
    const std::string cut(1, '\0');  // no file name, and nothing of ours, has this character in it
    const std::string page = filled(
        kReportPage,
        {{"seconds", print("%.6f", duration)},
         {"style", kReportStyle},
         {"script", kReportScript},
         {"name", html_text(named ? std::filesystem::path(c.options.in).filename().string() : input.name)},
         {"summary", summary(c)},
         {"before-sound", cut},
         {"after-sound", cut},
         {"width", std::to_string(c.picture_width)},
         {"height", std::to_string(c.picture_height)},
         {"picture-text", print("0 to %g kHz upwards, %.2f s from left to right", top, duration)},
         {"before-picture", "data:image/png;base64," + base64(c.before)},
         {"after-picture", "data:image/png;base64," + base64(c.after)},
         {"frequency-scale", scale(number_ticks(top, 8), "kHz", true)},
         {"level-scale", scale(level_ticks(c.lowest_level), "dBFS", false)},
         {"time-scale", time_scale(duration)},
         {"speech-strip", speech_strip(c, duration)},
         {"level-chart", level_chart(c, duration)},
         {"darkest", whole_number(c.brightest - kColourRange)},
         {"brightest", whole_number(c.brightest)},
         {"colours", colours()},
         {"bandwidth", input.rate > VQ_NS_RATE ? kBandwidth : ""},
         {"piece", print("%.0f ms", 1000 * c.levels.piece)},
         {"lowest", whole_number(c.lowest_level)},
         {"speech-levels", level_cells(c.denoising.meter.speech)},
         {"pause-levels", level_cells(c.denoising.meter.pauses)},
         {"figures", figures(c, coding)},
         {"stretches", counted(c.speech.size(), "stretch", "stretches")},
         {"stretch-list", stretches}});
    const size_t first = page.find(cut), second = page.find(cut, first + 1);
    return {page.substr(0, first), page.substr(first + 1, second - first - 1), page.substr(second + 1)};
}

}  // namespace vqns_tool
