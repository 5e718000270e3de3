#include <algorithm>

#include "signal_processing_library.h"
#include "spl_require.h"

namespace {

void require_elements(size_t n, const char* function) {
    require(n > 0, "(length) > (0)", "../../gmm_vad/source/csrc/signal_processing_library", function);
}

template <typename T>
T largest(const T* v, size_t n) {
    T best = v[0];
    for (size_t i = 1; i < n; i++) best = std::max(best, v[i]);
    return best;
}

template <typename T>
T smallest(const T* v, size_t n) {
    T best = v[0];
    for (size_t i = 1; i < n; i++) best = std::min(best, v[i]);
    return best;
}

}  // namespace

int16_t TarvikSpl_MaxAbsValueW16C(const int16_t* v, size_t n) {
    require_elements(n, "int16_t TarvikSpl_MaxAbsValueW16C(const int16_t*, size_t)");
    int32_t best = 0;
    for (size_t i = 0; i < n; i++) best = std::max<int32_t>(best, v[i] < 0 ? -v[i] : v[i]);
    return static_cast<int16_t>(std::min<int32_t>(best, INT16_MAX));
}

int32_t TarvikSpl_MaxAbsValueW32C(const int32_t* v, size_t n) {
    require_elements(n, "int32_t TarvikSpl_MaxAbsValueW32C(const int32_t*, size_t)");
    uint32_t best = 0;
    for (size_t i = 0; i < n; i++) {
        const uint32_t x = static_cast<uint32_t>(v[i]);
        best = std::max(best, v[i] < 0 ? 0 - x : x);
    }
    return static_cast<int32_t>(best);
}

int16_t TarvikSpl_MaxValueW16C(const int16_t* v, size_t n) {
    require_elements(n, "int16_t TarvikSpl_MaxValueW16C(const int16_t*, size_t)");
    return largest(v, n);
}

int32_t TarvikSpl_MaxValueW32C(const int32_t* v, size_t n) {
    require_elements(n, "int32_t TarvikSpl_MaxValueW32C(const int32_t*, size_t)");
    return largest(v, n);
}

int16_t TarvikSpl_MinValueW16C(const int16_t* v, size_t n) {
    require_elements(n, "int16_t TarvikSpl_MinValueW16C(const int16_t*, size_t)");
    return smallest(v, n);
}

int32_t TarvikSpl_MinValueW32C(const int32_t* v, size_t n) {
    require_elements(n, "int32_t TarvikSpl_MinValueW32C(const int32_t*, size_t)");
    return smallest(v, n);
}

int16_t (*TarvikSpl_MaxAbsValueW16)(const int16_t*, size_t) = TarvikSpl_MaxAbsValueW16C;
int32_t (*TarvikSpl_MaxAbsValueW32)(const int32_t*, size_t) = TarvikSpl_MaxAbsValueW32C;
int16_t (*TarvikSpl_MaxValueW16)(const int16_t*, size_t) = TarvikSpl_MaxValueW16C;
int32_t (*TarvikSpl_MaxValueW32)(const int32_t*, size_t) = TarvikSpl_MaxValueW32C;
int16_t (*TarvikSpl_MinValueW16)(const int16_t*, size_t) = TarvikSpl_MinValueW16C;
int32_t (*TarvikSpl_MinValueW32)(const int32_t*, size_t) = TarvikSpl_MinValueW32C;
