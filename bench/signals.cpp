#include "signals.h"

#include <cmath>
#include <numbers>
#include <random>

std::vector<int16_t> voice(int32_t rate) {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 300);
    std::vector<int16_t> x(static_cast<size_t>(rate));
    for (size_t i = 0; i < x.size(); ++i) {
        const double turn = 2 * std::numbers::pi * static_cast<double>(i) / rate;
        double sum = 0;
        for (int k = 1; k <= 20; ++k) sum += std::sin(140 * k * turn) / k;
        x[i] =
            static_cast<int16_t>(std::lround(6000 * sum * std::pow(std::sin(2 * turn), 2) + noise(random)));
    }
    return x;
}
