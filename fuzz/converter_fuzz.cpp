/* Any rates, layouts and block sizes: the converter stays within the room that its header asks for. */
#include <memory>

#include "bytes.h"
#include "rate_converter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    enum { kMost = 1000 };
    Bytes in{data, size};
    const size_t bytes = RK_VOIP_DSP_SRC_BYTES(2 * RK_VOIP_DSP_SRC_ROOM(kMost));
    const std::unique_ptr<uint64_t[]> memory(new uint64_t[bytes / sizeof(uint64_t) + 1]());
    auto* converter = reinterpret_cast<rk_voip_dsp_src_inst_t*>(memory.get());
    const uint8_t choice = in.byte(), mode = in.byte();
    const uint32_t from = mode % 16 == 0 ? in.word() : static_cast<uint32_t>(kRates[choice % 8]);
    const uint32_t to = static_cast<uint32_t>(kRates[choice / 8 % 8]);
    rk_voip_dsp_src_init(&converter, from, to, mode % 8 == 7 ? in.word() : 1000u + mode % 4, mode / 16 % 4);
    for (int call = 0; call < 20 && in.left > 0; ++call) {
        const int32_t count = static_cast<int32_t>(in.word() % (kMost + 4)) - 3;
        const size_t n = static_cast<size_t>(count > 0 ? count : 0);
        std::vector<int16_t> pcm = in.pcm(n), out(2 * RK_VOIP_DSP_SRC_ROOM(n));
        rk_voip_dsp_src_proc(&converter, pcm.data(), out.data(), count);
    }
    return 0;
}
