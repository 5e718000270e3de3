#include "gmm_vad.h"

#include <stdio.h>
#include <stdlib.h>

#include "vad_core.h"

namespace {

constexpr int32_t initialised = 42;

bool ready(const VadInstT* instance) {
    return instance != nullptr && instance->init_flag == initialised;
}

}  // namespace

VadInstT* TarvikGmmVad_Create(void) {
    VadInstT* const instance = static_cast<VadInstT*>(malloc(sizeof(VadInstT)));
    if (instance != nullptr) instance->init_flag = 0;
    return instance;
}

void TarvikGmmVad_Free(void* instance) {
    free(instance);
}

int32_t TarvikGmmVad_Init(VadInstT* instance) {
    return TarvikGmmVad_InitCore(instance);
}

int32_t TarvikGmmVad_set_mode(VadInstT* instance, int32_t mode) {
    return ready(instance) ? TarvikGmmVad_set_mode_core(instance, mode) : -1;
}

int32_t TarvikGmmVad_ValidRateAndFrameLength(int32_t rate, size_t frame_length) {
    if (rate != 8000 && rate != 16000 && rate != 32000 && rate != 48000) return -1;
    const size_t ten_ms = static_cast<size_t>(rate) / 100;
    return frame_length == ten_ms || frame_length == 2 * ten_ms || frame_length == 3 * ten_ms ? 0 : -1;
}

int32_t TarvikGmmVad_Process(VadInstT* instance, int32_t rate, const int16_t* frame, size_t frame_length) {
    if (!ready(instance) || frame == nullptr) return -1;
    if (TarvikGmmVad_ValidRateAndFrameLength(rate, frame_length) != 0) return -1;
    int32_t decision = 0;
    switch (rate) {
        case 48000:
            decision = TarvikGmmVad_CalcVad48khz(instance, frame, frame_length);
            break;
        case 32000:
            decision = TarvikGmmVad_CalcVad32khz(instance, frame, frame_length);
            break;
        case 16000:
            decision = TarvikGmmVad_CalcVad16khz(instance, frame, frame_length);
            break;
        default:
            decision = TarvikGmmVad_CalcVad8khz(instance, frame, frame_length);
            break;
    }
    return decision > 0 ? 1 : decision;
}

int32_t TarvikGmmVad_api_Init(TarvikGmmVad_api_t* wrapper, const int32_t* config) {
    *wrapper = {nullptr, config[0], config[1], config[2], config[3], 0, 0, 0};
    wrapper->instance = TarvikGmmVad_Create();
    if (wrapper->instance == nullptr) return -1;
    const char* failure = nullptr;
    if (TarvikGmmVad_Init(wrapper->instance) != 0) {
        failure = "TarvikGmmVad_Init fail";
    } else if (TarvikGmmVad_set_mode(wrapper->instance, wrapper->mode) != 0) {
        failure = "TarvikGmmVad_set_mode fail";
    }
    if (failure == nullptr) return 0;
    puts(failure);
    TarvikGmmVad_api_deinit(wrapper);
    return -1;
}

int32_t TarvikGmmVad_api_Process(TarvikGmmVad_api_t* wrapper, const int16_t* frame, size_t frame_length) {
    const int32_t speech = TarvikGmmVad_Process(wrapper->instance, wrapper->rate, frame, frame_length);
    if (speech == -1) {
        puts("failed in TarvikGmmVad_Process");
        return -1;
    }
    if (speech == 1) {
        wrapper->speech_seen = 1;
        if (wrapper->onset_count < wrapper->onset_frames) {
            wrapper->onset_count++;
            return 0;
        }
        wrapper->hangover_count = 0;
        return 1;
    }
    if (wrapper->speech_seen == 0) return 0;
    wrapper->onset_count = 0;
    if (wrapper->hangover_count >= wrapper->hangover_frames) return 0;
    wrapper->hangover_count++;
    return 1;
}

void TarvikGmmVad_api_deinit(TarvikGmmVad_api_t* wrapper) {
    TarvikGmmVad_Free(wrapper->instance);
    wrapper->instance = nullptr;
}
