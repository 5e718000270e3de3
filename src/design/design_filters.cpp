// design_filters.cpp - designs the coefficient tables of the sample-rate converter.
//
//     design_filters          writes rate_converter_filters.cpp to standard output
//     design_filters --scan   compares windows: the figures behind the choices in kFamilies
//
// A table for up by L, down by M is the prototype low pass sinc(d / K) * window(d), K = max(L, M), cutoff
// pi / K, gain L, with d the distance to an integer centre tap, so that the delay is exact. It is stored
// as L polyphase branches.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Window {
    const char* name;
    double beta;       // Kaiser's shape parameter, or
    double cosine[4];  // without one: a sum of cosines
};

double bessel_i0(double x) {
    double sum = 1, term = 1;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        term *= (x / 2 / k) * (x / 2 / k);
        sum += term;
    }
    return sum;
}

// x from -1 to 1.
double value(const Window& window, double x) {
    if (window.beta > 0) return bessel_i0(window.beta * std::sqrt(1 - x * x)) / bessel_i0(window.beta);
    double sum = 0;
    for (int k = 0; k < 4; ++k) sum += window.cosine[k] * std::cos(kPi * k * x);
    return sum;
}

// A family of tables: how many lobes of the sinc its prototypes span, and band edges in units of the
// cutoff. With so few lobes the bands cannot come closer to the cutoff; the edges keep the telephone
// band's bulk (20 lobes) and the formants (10 lobes) free of aliases at any rate. The window is the one
// that --scan finds deepest in the stop band of the family's worst table.
struct Family {
    const char* suffix;
    int lobes;
    double pass, stop;
    Window window;
};

const Family kFamilies[2] = {{"", 20, 0.8, 1.2, {"Kaiser", 6.2, {}}},
                             {"_lcmplx", 10, 0.65, 1.35, {"Kaiser", 5.1, {}}}};

struct Ratio {
    int up, down;
};

const std::vector<Ratio> kRatios[2] = {
    {{1, 2}, {1, 3}, {1, 4}, {2, 1}, {2, 7}, {3, 1}, {3, 5},  {3, 10}, {4, 7},  {5, 3}, {5, 8},
     {5, 9}, {6, 1}, {7, 4}, {7, 8}, {8, 7}, {9, 5}, {9, 10}, {9, 20}, {10, 9}, {20, 9}},
    {{1, 2}, {1, 3}, {1, 4},  {1, 6}, {1, 8},  {2, 1},  {2, 3},  {2, 7}, {3, 1},
     {3, 4}, {3, 5}, {3, 10}, {4, 1}, {4, 7},  {5, 3},  {5, 8},  {5, 9}, {6, 1},
     {7, 4}, {7, 8}, {8, 7},  {9, 5}, {9, 10}, {9, 20}, {10, 9}, {20, 9}}};

struct Table {
    int up, down, taps, centre;
    std::vector<int> prototype;  // up * taps, Q15

    int wider() const {  // the cutoff is pi over this
        return std::max(up, down);
    }
    int length() const {
        return up * taps;
    }
    int at(int k) const {
        return k < 0 || k >= length() ? 0 : prototype[static_cast<size_t>(k)];
    }
    int branch_sum(int p) const {
        int sum = 0;
        for (int k = p; k < length(); k += up) sum += at(k);
        return sum;
    }
};

double sinc(double x) {
    return x == 0 ? 1 : std::sin(kPi * x) / (kPi * x);
}

// Rounds the taps of branch p, and with them their mirror images about the centre, so that the branch
// sums to 32768, or as near to that as the symmetry allows. The branch is first scaled to its sum; what
// rounding leaves over goes to the taps that were rounded furthest the other way.
void quantise_branch(Table& table, const std::vector<double>& ideal, int p) {
    struct Tap {
        int k;
        double error;  // ideal minus rounded
    };
    const int mirror = ((2 * table.centre - p) % table.up + table.up) % table.up;
    const bool own_mirror = mirror == p;
    std::vector<Tap> taps;
    double sum = 0;
    int target = 32768;
    for (int k = p; k < table.length(); k += table.up) {
        if (k == table.centre) {
            target -= table.prototype[static_cast<size_t>(k)];
        } else {
            sum += ideal[static_cast<size_t>(k)];
            if (!own_mirror || k < table.centre) taps.push_back({k, 0});
        }
    }
    int left = target;
    const int weight = own_mirror ? 2 : 1;
    const auto store = [&](int k, int tap) {
        table.prototype[static_cast<size_t>(k)] = tap;
        table.prototype[static_cast<size_t>(2 * table.centre - k)] = tap;
    };
    for (Tap& tap : taps) {
        const double scaled = ideal[static_cast<size_t>(tap.k)] * target / sum;
        const int rounded = static_cast<int>(std::lround(scaled));
        tap.error = scaled - rounded;
        if (rounded != 0) store(tap.k, rounded);
        left -= weight * rounded;
    }
    const int step = left < 0 ? -1 : 1;
    std::sort(taps.begin(), taps.end(),
              [step](const Tap& a, const Tap& b) { return a.error * step > b.error * step; });
    for (size_t i = 0; i < taps.size() && left * step >= weight; ++i, left -= weight * step)
        store(taps[i].k, table.at(taps[i].k) + step);
}

Table design(const Ratio& ratio, const Family& family, const Window& window) {
    Table table{ratio.up, ratio.down, 0, 0, {}};
    table.taps = (family.lobes * table.wider() + 1) / table.up;
    table.centre = table.length() / 2;
    table.prototype.assign(static_cast<size_t>(table.length()), 0);

    std::vector<double> ideal(table.prototype.size(), 0);
    for (int k = 0; k < table.length(); ++k) {
        const int d = k - table.centre;
        // An even length has one tap more before the centre than after it: that one stays zero.
        if (2 * table.centre - k >= table.length()) continue;
        // The zeros of the sinc are exact.
        if (d % table.wider() == 0) continue;
        ideal[static_cast<size_t>(k)] = 32768.0 * table.up / table.wider() *
                                        sinc(static_cast<double>(d) / table.wider()) *
                                        value(window, static_cast<double>(d) / table.centre);
    }
    // The centre tap is the gain L over K, cut to what 16 bits hold; 7 by 8 is one below that.
    int largest = std::min(32767, 32768 * table.up / table.wider());
    if (table.up == 7 && table.down == 8) largest = 28671;
    table.prototype[static_cast<size_t>(table.centre)] = largest;
    for (int p = 0; p < table.up; ++p) {
        const int mirror = ((2 * table.centre - p) % table.up + table.up) % table.up;
        if (p <= mirror) quantise_branch(table, ideal, p);
    }
    return table;
}

// The long 1-by-3 table is fixed, irregularities included, so that streams keep converting as they do: its
// centre tap lacks a digit (10922 would be regular) and the taps at distances 4 and 5 have the wrong sign.
// Its window is its own.
Table irregular_1_by_3() {
    const Window window{"Kaiser", 5.0, {}};
    Table table{1, 3, 61, 30, std::vector<int>(61)};
    for (int k = 0; k < 61; ++k) {
        const int d = std::abs(k - 30);
        double tap = d % 3 == 0 ? 0 : 32767 / 3.0 * sinc(d / 3.0) * value(window, d / 30.0);
        if (d == 4 || d == 5) tap = -tap;
        table.prototype[static_cast<size_t>(k)] = d == 0 ? 922 : static_cast<int>(std::lround(tap));
    }
    return table;
}

// The response of the quantised prototype, in a band from..to in units of the cutoff frequency.
struct Response {
    double lowest, highest;  // magnitude relative to the nominal gain
};

Response response(const Table& table, double from, double to) {
    constexpr int kGrid = 200;  // points in one cutoff frequency: twenty a side lobe
    const int period = 2 * kGrid * table.wider();
    std::vector<double> cosine(static_cast<size_t>(period));
    for (int i = 0; i < period; ++i) cosine[static_cast<size_t>(i)] = std::cos(2 * kPi * i / period);
    Response result{1e9, 0};
    for (int f = static_cast<int>(std::lround(from * kGrid)); f <= std::lround(to * kGrid); ++f) {
        double sum = table.at(table.centre);
        for (int d = 1; d <= table.centre; ++d)
            sum += (table.at(table.centre - d) + table.at(table.centre + d)) *
                   cosine[static_cast<size_t>(d * f % period)];
        const double magnitude = std::fabs(sum) / (32768.0 * table.up);
        result.lowest = std::min(result.lowest, magnitude);
        result.highest = std::max(result.highest, magnitude);
    }
    return result;
}

struct Figures {
    double attenuation, ripple;  // dB
};

Figures measure(const Table& table, const Family& family) {
    const Response pass = response(table, 0, family.pass), stop = response(table, family.stop, table.wider());
    return {-20 * std::log10(stop.highest),
            20 * std::max(std::log10(pass.highest), -std::log10(pass.lowest))};
}

void scan() {
    std::vector<Window> windows = {{"Hann", 0, {0.5, 0.5, 0, 0}},
                                   {"Hamming", 0, {0.54, 0.46, 0, 0}},
                                   {"Blackman", 0, {0.42, 0.5, 0.08, 0}},
                                   {"Blackman-Harris", 0, {0.35875, 0.48829, 0.14128, 0.01168}}};
    for (int beta = 40; beta <= 80; ++beta) windows.push_back({"Kaiser", beta / 10.0, {}});
    for (size_t f = 0; f < 2; ++f) {
        const Family& family = kFamilies[f];
        std::printf("%d lobes, worst of %zu tables: attenuation from %.2f, ripple to %.2f of the cutoff\n",
                    family.lobes, kRatios[f].size(), family.stop, family.pass);
        for (const Window& window : windows) {
            Figures worst{1e9, 0};
            for (const Ratio& ratio : kRatios[f]) {
                const Figures figures = measure(design(ratio, family, window), family);
                worst = {std::min(worst.attenuation, figures.attenuation),
                         std::max(worst.ripple, figures.ripple)};
            }
            std::printf("  %-16s %4.1f  %5.1f dB  %.3f dB\n", window.name, window.beta, worst.attenuation,
                        worst.ripple);
        }
    }
}

void print(const Table& table, const Family& family) {
    int low = 1 << 20, high = 0;
    for (int p = 0; p < table.up; ++p) {
        low = std::min(low, table.branch_sum(p));
        high = std::max(high, table.branch_sum(p));
    }
    const Figures figures = measure(table, family);
    std::printf("\n// %d branch%s of %d taps, sums %d to %d; stop band %.1f dB, ripple %.3f dB\n", table.up,
                table.up == 1 ? "" : "es", table.taps, low, high, figures.attenuation, figures.ripple);
    std::printf("const int16_t rk_voip_dsp_ph_%d_by_%d%s[%d * %d] = {\n", table.up, table.down, family.suffix,
                table.up, table.taps);
    for (int p = 0; p < table.up; ++p) {
        std::string line;
        for (int j = 0; j < table.taps; ++j) {
            const std::string number = std::to_string(table.at(j * table.up + p)) + ",";
            if (line.size() + number.size() + 5 > 110) {
                std::printf("    %s\n", line.c_str());
                line.clear();
            }
            line += (line.empty() ? "" : " ") + number;
        }
        std::printf("    %s\n", line.c_str());
    }
    std::printf("};\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--scan") == 0) {
        scan();
        return 0;
    }
    if (argc != 1) {
        std::fprintf(stderr, "usage: design_filters [--scan]\n");
        return 2;
    }
    std::printf(
        "// rate_converter_filters.cpp - written by design/design_filters.cpp; change that and run it "
        "again.\n"
        "//\n"
        "// Windowed-sinc low passes, Q15, cutoff pi / max(L, M), gain L, symmetric about prototype tap\n"
        "// L*T/2; run p holds the prototype taps p, p + L, p + 2L, ... The figures are measured on the\n"
        "// rounded coefficients, with band edges in units of the cutoff:\n");
    for (const Family& family : kFamilies)
        std::printf(
            "//     rk_voip_dsp_ph_<L>_by_<M>%s: %d lobes, %s window with beta %.1f,\n"
            "//         stop band from %.2f, pass band to %.2f\n",
            family.suffix, family.lobes, family.window.name, family.window.beta, family.stop, family.pass);
    std::printf(
        "// The long 1-by-3 table is irregular at its centre and at distances 4 and 5, and stays so.\n"
        "#include \"rate_converter_filters.h\"\n\n// clang-format off\n");
    for (size_t f = 0; f < 2; ++f)
        for (const Ratio& ratio : kRatios[f]) {
            const bool irregular = f == 0 && ratio.up == 1 && ratio.down == 3;
            print(irregular ? irregular_1_by_3() : design(ratio, kFamilies[f], kFamilies[f].window),
                  kFamilies[f]);
        }
    return 0;
}
