/* Any samples at any rate and length through the detector and the gain control. */
#include <cstdlib>

#include "bytes.h"
#include "gain_control.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in{data, size};
    const int32_t rate = kRates[in.byte() % 8];
    VadInstT* detector = TarvikGmmVad_Create();
    TarvikGmmVad_Init(detector);
    TarvikGmmVad_set_mode(detector, in.byte() % 5);
    rk_voip_dsp_dgc_kwenh_data_t gain;
    const int32_t config[4] = {in.byte() % 4, 16000, in.byte() % 4, in.byte() % 4};
    if (rk_dsp_dgc_kwenh_init(&gain, static_cast<int16_t>(in.word()), 16000, in.byte() % 12, config) != 0)
        std::abort();
    while (in.left > 0) {
        const size_t n = in.word() % 1500;
        std::vector<int16_t> pcm = in.pcm(n);
        TarvikGmmVad_Process(detector, rate, pcm.data(), n);
        const std::vector<int16_t> frame = in.pcm(static_cast<size_t>(rate / 100));
        TarvikGmmVad_Process(detector, rate, frame.data(), frame.size());
        rk_dsp_dgc_kwenh_api_process(&gain, pcm.data(), static_cast<int16_t>(n), 1);
    }
    rk_dsp_dgc_kwenh_deinit(&gain);
    TarvikGmmVad_Free(detector);
    return 0;
}
