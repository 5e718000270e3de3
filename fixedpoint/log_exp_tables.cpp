#include "log_exp.h"

uint8_t logtable[65536];

// clang-format off
const uint16_t exptable[16] = {
    1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, 32768,
};

const int32_t logncoefftable[5] = {32739, -16055, 9361, -4360, 1028};

const int32_t expcoefftable[9] = {32768, 32768, 16384, 5461, 1365, 273, 46, 7, 1};

const int32_t integerexptable[12] = {1, 2, 7, 20, 54, 148, 403, 1096, 2980, 8103, 22026, 59874};

const int32_t fractionexptable[12] = {
    0, 23537, 12749, 2803, 19600, 13538, 14051, 20747, 31391, 2750, 15263, 4644,
};

const int32_t complexpcoefftable[9] = {32768, 32768, -16384, -5461, 1365, 273, -46, -7, 1};
// clang-format on
