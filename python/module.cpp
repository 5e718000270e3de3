// The extension module vqns._native: blocks of [frames, channels] through the streaming adapter, without the
// interpreter lock. What arguments mean and which are refused is settled in the Python files around it.
//
// Settings and flags change under the interpreter lock alone; what runs without it is the work on one block.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "resampler.h"
#include "speech_segments.h"
#include "vq_ns.h"
#include "vq_ns_model.h"
#include "vqns_channels.h"

namespace {

namespace py = pybind11;

template <typename Sample>
using Frames = py::array_t<Sample, py::array::c_style>;

// The adapter tells of rates and options that it does not take in this way.
template <typename Open>
auto open_or_refuse(Open open) {
    try {
        return open();
    } catch (const std::runtime_error& error) {
        throw py::value_error(error.what());
    }
}

// While one thread is inside. Taken and given back under the interpreter lock.
class Turn {
  public:
    Turn(bool& taken, const char* what) : taken_(taken) {
        if (taken) {
            throw std::runtime_error(std::string("this ") + what +
                                     " is at work in another thread; give each thread one of its own");
        }
        taken_ = true;
    }
    ~Turn() {
        taken_ = false;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    bool& taken_;
};

template <typename Sample>
void check_shape(const Frames<Sample>& frames, size_t channels) {
    if (frames.ndim() != 2 || frames.shape(1) != static_cast<py::ssize_t>(channels)) {
        throw py::value_error("frames of " + std::to_string(channels) + " channels are expected");
    }
}

class Stream {
  public:
    Stream(int rate, int channels, int speech_mode) {
        vqns_stream::Options options;
        options.detector_mode = speech_mode;
        options.context = &hops_;
        options.observer = [](void* context, const vqns_stream::Hop& hop) {
            add_hop(*static_cast<vqns_stream::SpeechHops*>(context), hop);
        };
        channels_ = open_or_refuse([&] { return vqns_stream::open_channels(rate, channels, options); });
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int64_t latency() const {
        return vqns_stream::latency(channels_);
    }

    // In place.
    template <typename Sample>
    void process(Frames<Sample> frames, double attenuation_limit, bool level, bool bypass) {
        check_shape(frames, channels_.streams.size());
        Sample* samples = frames.mutable_data();
        const int64_t count = frames.shape(0);
        const Turn turn(taken_, "stream");
        const py::gil_scoped_release unlocked;
        for (const auto& stream : channels_.streams) {
            set_attenuation_limit(stream.get(), attenuation_limit);
            set_level(stream.get(), level);
            set_bypass(stream.get(), bypass);
        }
        vqns_stream::process(channels_, samples, count);
    }

    std::vector<std::pair<double, double>> speech_segments(double duration, double min_pause,
                                                           double min_speech) {
        const Turn turn(taken_, "stream");
        std::vector<std::pair<double, double>> segments;
        for (const auto& s : tidy(segments_of(hops_), duration, min_pause, min_speech)) {
            segments.emplace_back(s.start, s.end);
        }
        return segments;
    }

  private:
    vqns_stream::SpeechHops hops_;
    vqns_stream::Channels channels_;
    bool taken_ = false;
};

class Resampler {
  public:
    Resampler(int from, int to, int channels)
        : resampler_(open_or_refuse([&] { return vqns_stream::open_resampler(from, to, channels); })) {}
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    Frames<int16_t> process(const Frames<int16_t>& frames) {
        check_shape(frames, resampler_.channels.size());
        const int16_t* samples = frames.data();
        const int64_t count = frames.shape(0);
        return converted([&](std::vector<int16_t>& out) { resample(resampler_, samples, count, out); });
    }

    Frames<int16_t> flush() {
        return converted([&](std::vector<int16_t>& out) { finish_resampling(resampler_, out); });
    }

  private:
    template <typename Convert>
    Frames<int16_t> converted(Convert convert) {
        std::vector<int16_t> out;
        const Turn turn(taken_, "resampler");
        {
            const py::gil_scoped_release unlocked;
            convert(out);
        }
        const auto channels = static_cast<py::ssize_t>(resampler_.channels.size());
        return Frames<int16_t>({static_cast<py::ssize_t>(out.size()) / channels, channels}, out.data());
    }

    vqns_stream::Resampler resampler_;
    bool taken_ = false;
};

}  // namespace

PYBIND11_MODULE(_native, module) {
    module.attr("version") = vqns_version();
    module.attr("model_id") = vqns_model_id();
    module.attr("STREAM_RATES") = py::make_tuple(+vqns_stream::kLowestRate, +vqns_stream::kHighestRate);
    module.attr("NEW_RATES") = py::make_tuple(+vqns_stream::kLowestNewRate, +vqns_stream::kHighestNewRate);

    py::class_<Stream>(module, "Stream")
        .def(py::init<int, int, int>(), py::arg("rate"), py::arg("channels"), py::arg("speech_mode"))
        .def_property_readonly("latency", &Stream::latency)
        .def("process", &Stream::process<int16_t>, py::arg("frames").noconvert(),
             py::arg("attenuation_limit"), py::arg("level"), py::arg("bypass"))
        .def("process", &Stream::process<float>, py::arg("frames").noconvert(), py::arg("attenuation_limit"),
             py::arg("level"), py::arg("bypass"))
        .def("speech_segments", &Stream::speech_segments, py::arg("duration"), py::arg("min_pause"),
             py::arg("min_speech"));

    py::class_<Resampler>(module, "Resampler")
        .def(py::init<int, int, int>(), py::arg("rate"), py::arg("new_rate"), py::arg("channels"))
        .def("process", &Resampler::process, py::arg("frames").noconvert())
        .def("flush", &Resampler::flush);
}
