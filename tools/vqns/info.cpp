#include <cstdio>
#include <cstdlib>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "vq_ns_model.h"
#include "vq_ns_pipeline.h"

namespace vqns_tool {
namespace {

const char* processor_level() {
    const std::unique_ptr<void, void (*)(void*)> memory(std::malloc(vq_ns_data_size()), std::free);
    auto* engine = static_cast<vq_ns_data*>(memory.get());
    if (engine == nullptr) throw std::bad_alloc();
    vq_ns_reset(engine, VQ_NS_RATE, VQ_NS_RATE);
    constexpr const char* kNames[] = {"generic", "AVX", "AVX2"};
    return kNames[engine->kernel_level];
}

}  // namespace

void info(const InfoOptions& options) {
    const vqns_stream::Channels stream = open_channels("--rate", options.rate, 1, {});
    const int64_t delay = latency(stream);
    const double milliseconds = 1000.0 * static_cast<double>(delay) / options.rate;
    const long long samples = delay;
    const size_t bytes = vq_ns_data_size();
    char text[512];
    if (options.json) {
        std::snprintf(text, sizeof text,
                      "{\"version\": \"%s\", \"model\": \"%s\", \"processor_level\": \"%s\", "
                      "\"instance_bytes\": %zu, \"rate\": %d, \"delay_samples\": %lld, \"delay_ms\": %.3f}\n",
                      vqns_version(), vqns_model_id(), processor_level(), bytes, options.rate, samples,
                      milliseconds);
    } else {
        std::snprintf(text, sizeof text,
                      "version          %s\n"
                      "model            %s\n"
                      "processor level  %s\n"
                      "instance size    %zu bytes\n"
                      "delay            %lld samples, %.3f ms at %d Hz\n",
                      vqns_version(), vqns_model_id(), processor_level(), bytes, samples, milliseconds,
                      options.rate);
    }
    print_result(text);
}

}  // namespace vqns_tool
