#include "kraaudiodsp/FilterDesign.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace dsp {
namespace {

struct Deviation {
    double db = 0.0;
    double frequencyHz = 0.0;
};

/// Largest deviation from the analog magnitude up to 0.45 of the rate; what both have below -60 dB counts
/// as equal. NaN when a section is not stable and of minimum phase.
Deviation Deviate(const AnalogSection& section, double rateHz) {
    const DesignedFilter filter = Design(section, rateHz);
    Deviation largest;
    for (std::size_t k = 0; k < filter.count; ++k) {
        const Biquad& biquad = filter.sections[k];
        const Biquad zeros{1, 0, 0, biquad.b1 / biquad.b0, biquad.b2 / biquad.b0};
        if (!IsStable(biquad) || GetPoleRadius(zeros) > 1.0 + 1e-12) return {NAN, 0.0};
    }
    for (int i = 1; i <= 1500; ++i) {
        const double frequencyHz = 0.45 * rateHz * std::pow(1e-4, 1.0 - i / 1500.0);
        double magnitude = 1.0;
        for (std::size_t k = 0; k < filter.count; ++k)
            magnitude *= std::abs(GetResponse(filter.sections[k], frequencyHz / rateHz));
        const double analog = std::abs(GetResponse(section, frequencyHz));
        const double db =
            std::fabs(20.0 * std::log10(std::max(magnitude, 1e-3) / std::max(analog, 1e-3)));
        if (db > largest.db) largest = {db, frequencyHz};
    }
    return largest;
}

TEST(FilterDesign, FollowsTheAnalogMagnitude) {
    // What a frequency that is off by 0.18 % costs on the slopes of 24 dB: most at the rate's third.
    for (const double rateHz : {44100.0, 48000.0, 96000.0, 192000.0})
        for (const double f : {10.0, 30.0, 200.0, 1000.0, 5000.0, 10000.0, 14600.0, 16000.0}) {
            const double limit = f > rateHz / 3.0 ? 0.17 : 0.12;
            std::vector<std::pair<std::string, AnalogSection>> rows = {
                {"first low-pass", MakeLowPass(f)}, {"first high-pass", MakeHighPass(f)}};
            for (const double q : {0.1, 0.5, 0.7071, 1.0, 3.0, 5.0, 10.0, 40.0}) {
                for (const double gainDb : {-24.0, -12.0, -3.0, 3.0, 12.0, 24.0})
                    rows.emplace_back("bell " + std::to_string(gainDb), MakeBell(f, gainDb, q));
                if (q < 0.4 || q > 3.0) continue;
                for (const double gainDb : {-24.0, -6.0, 6.0, 24.0}) {
                    rows.emplace_back("low shelf", MakeLowShelf(f, gainDb, q));
                    rows.emplace_back("high shelf", MakeHighShelf(f, gainDb, q));
                }
                rows.emplace_back("low-pass", MakeLowPass(f, q));
                rows.emplace_back("high-pass", MakeHighPass(f, q));
                rows.emplace_back("band-pass", MakeBandPass(f, q));
            }
            for (const auto& [name, section] : rows) {
                const Deviation deviation = Deviate(section, rateHz);
                EXPECT_LT(deviation.db, limit) << name << " at " << f << " Hz, rate " << rateHz
                                               << ", off at " << deviation.frequencyHz << " Hz";
                EXPECT_FALSE(std::isnan(deviation.db)) << name << " at " << f;
            }
        }
}

TEST(FilterDesign, StaysStableAtTheEdges) {
    for (const double rateHz : {8000.0, 48000.0, 384000.0})
        for (const double fraction : {2.7e-5, 0.01, 0.25, 0.49})
            for (const double q : {0.1, 1.0, 40.0})
                for (const AnalogSection& section :
                     {MakeBell(fraction * rateHz, 24, q), MakeBell(fraction * rateHz, -24, q),
                      MakeLowShelf(fraction * rateHz, 24, q),
                      MakeHighShelf(fraction * rateHz, 24, q),
                      MakeHighShelf(fraction * rateHz, -24, q), MakeLowPass(fraction * rateHz, q),
                      MakeHighPass(fraction * rateHz, q)})
                    EXPECT_FALSE(std::isnan(Deviate(section, rateHz).db)) << fraction << ' ' << q;
}

TEST(FilterDesign, NotchesSilenceTheirFrequency) {
    for (const double f : {50.0, 1000.0, 15625.0}) {
        const DesignedFilter filter = Design(MakeNotch(f, 10.0), 48000.0);
        double at = 1.0;
        double octaveBelow = 1.0;
        for (const Biquad& section : filter.sections) {
            at *= std::abs(GetResponse(section, f / 48000.0));
            octaveBelow *= std::abs(GetResponse(section, f / 96000.0));
        }
        EXPECT_LT(at, 1e-6) << f;
        EXPECT_NEAR(20.0 * std::log10(octaveBelow), -0.02, 0.02) << f;
    }
}

}  // namespace
}  // namespace dsp
