#ifndef SIGNALS_H
#define SIGNALS_H

#include <cstdint>
#include <vector>

/* The rates that engine and converter know, Hz. */
constexpr int32_t kRates[] = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000};

/* A second of a voice-like signal: harmonics of 140 Hz that swell and fade four times, over noise. */
std::vector<int16_t> voice(int32_t rate);

#endif
