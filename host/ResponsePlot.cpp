#include "host/ResponsePlot.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>

#include "Components/ParametricEqualizer.h"
#include "kracore/WStr.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host {
namespace {

constexpr double kShortestSeconds = 0.5;
constexpr double kLongestSeconds = 10.0;
constexpr float kSilence = 1e-7f;  // -140 dB
constexpr float kEnd = 1e-3f;      // of the peak: where an impulse picture stops
constexpr double kFloorDb = -72.0;
constexpr double kLongSeconds = 0.1;
constexpr std::size_t kColumns = 900;
constexpr double kLowestHz = components::ParametricEqualizer::kLowestCurveHz;
constexpr double kSpanDb = 66.0;

std::vector<std::string> NameChannels(const AudioFilter& filter) {
    std::vector<std::string> names;
    for (const auto& channel : filter.GetInputBuses().front().GetLayout()) {
        const auto name = kramediatypes::AudioChannelLabelDescription(channel.label, false);
        names.push_back(channel.label == kramediatypes::AudioChannelLabel::kNone
                            ? "Channel " + std::to_string(names.size() + 1)
                            : kracore::utility::ToUtf8(name));
    }
    return names;
}

double ToDb(double power) { return 10.0 * std::log10(std::max(power, 1e-20)); }

float GetPeak(const std::vector<float>& response) {
    float peak = 0.0f;
    for (const float x : response) peak = std::max(peak, std::fabs(x));
    return peak;
}

/// Calls `use(in, out, response)` for every pair of channels of which one is heard in the other.
template <class Use>
void ForEachHeard(const ImpulseResponses& responses, const Use& use) {
    for (std::size_t in = 0; in < responses.frames.size(); ++in)
        for (std::size_t out = 0; out < responses.frames[in].size(); ++out)
            if (GetPeak(responses.frames[in][out]) > kSilence)
                use(in, out, responses.frames[in][out]);
}

std::string NamePair(const ImpulseResponses& responses, std::size_t in, std::size_t out) {
    if (responses.channelNames.size() == 1) return "";
    return in == out ? responses.channelNames[in]
                     : responses.channelNames[in] + " to " + responses.channelNames[out];
}

/// The frames to show: from the first to the last that stand above kEnd, the impulse among them.
std::pair<std::size_t, std::size_t> FindExtent(const ImpulseResponses& responses) {
    auto first = static_cast<std::size_t>(responses.latencyFrames);
    std::size_t last = first + 1;
    ForEachHeard(responses, [&](std::size_t, std::size_t, const std::vector<float>& response) {
        const float threshold = kEnd * GetPeak(response);
        for (std::size_t i = 0; i < response.size(); ++i)
            if (std::fabs(response[i]) > threshold) {
                first = std::min(first, i);
                last = std::max(last, i + 1);
            }
    });
    return {first, last};
}

/// The line through the lowest and the highest value of each column, so that no single frame is lost;
/// or the highest level of each.
std::vector<FigurePoint> TraceColumns(const ImpulseResponses& responses,
                                      const std::vector<float>& response,
                                      std::pair<std::size_t, std::size_t> extent,
                                      bool asLevel) {
    std::vector<FigurePoint> points;
    const std::size_t count = extent.second - extent.first;
    const std::size_t columns = std::min(count, 2 * kColumns);
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t begin = extent.first + count * column / columns;
        const std::size_t end = extent.first + count * (column + 1) / columns;
        const auto [least, most] = std::minmax_element(response.begin() + static_cast<long>(begin),
                                                       response.begin() + static_cast<long>(end));
        const double lo = static_cast<double>(*least);
        const double hi = static_cast<double>(*most);
        const double seconds = (static_cast<double>(begin) - responses.latencyFrames) /
                               static_cast<double>(responses.rateHz);
        if (asLevel)
            points.push_back({seconds, std::max(ToDb(std::max(lo * lo, hi * hi)), kFloorDb)});
        else
            points.insert(points.end(), {{seconds, lo}, {seconds, hi}});
    }
    return points;
}

/// From the floor to a little above the highest level, or to both sides of the largest amplitude.
Axis MakeImpulseAxis(const ImpulseResponses& responses, std::size_t out, bool asLevel) {
    float peak = kSilence;
    for (const auto& row : responses.frames) peak = std::max(peak, GetPeak(row[out]));
    const double bound = 1.1 * static_cast<double>(peak);
    const std::string name =
        responses.channelNames.size() == 1 ? "" : responses.channelNames[out] + ": ";
    if (!asLevel) return {name + "amplitude", -bound, bound};
    const double top = 6.0 * std::ceil((ToDb(bound * bound) + 2.0) / 6.0);
    return {name + "level (dB)", kFloorDb, top, AxisUnit::kDecibel};
}

// ---- Frequency responses ----

using Spectrum = std::vector<std::complex<double>>;

/// Discrete Fourier transform in place, decimation in time; the size is a power of two.
void Transform(Spectrum& values) {
    const std::size_t count = values.size();
    for (std::size_t i = 1, reversed = 0; i < count; ++i) {
        std::size_t bit = count / 2;
        for (; reversed & bit; bit /= 2) reversed ^= bit;
        reversed ^= bit;
        if (i < reversed) std::swap(values[i], values[reversed]);
    }
    Spectrum turns(count / 2);
    for (std::size_t k = 0; k < turns.size(); ++k)
        turns[k] = std::polar(
            1.0, -2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(count));
    for (std::size_t half = 1; half < count; half *= 2)
        for (std::size_t start = 0; start < count; start += 2 * half)
            for (std::size_t k = 0; k < half; ++k) {
                const auto even = values[start + k];
                const auto odd = values[start + k + half] * turns[k * (count / 2 / half)];
                values[start + k] = even + odd;
                values[start + k + half] = even - odd;
            }
}

}  // namespace

ImpulseResponses MeasureImpulseResponses(ChainProcessor& chain, float rateHz, double seconds) {
    chain.RequireBlockwise();
    const std::size_t channels = chain.GetChannelCount();
    const double tail = static_cast<double>(chain.GetTailFrames()) / static_cast<double>(rateHz);
    const double length =
        seconds > 0.0 ? seconds : std::clamp(tail, kShortestSeconds, kLongestSeconds);
    ImpulseResponses responses;
    responses.rateHz = rateHz;
    responses.latencyFrames = static_cast<int>(chain.GetLatencyFrames());
    responses.channelNames = NameChannels(*chain.GetFilters().front());
    const auto frames = static_cast<std::size_t>(length * static_cast<double>(rateHz)) +
                        static_cast<std::size_t>(responses.latencyFrames);
    for (std::size_t in = 0; in < channels; ++in) {
        auto& answer = responses.frames.emplace_back(channels, std::vector<float>(frames));
        answer[in][0] = 1.0f;
        chain.Resume();
        std::vector<float*> audio(channels);
        const auto block = static_cast<std::size_t>(chain.GetMaximumBlockFrames());
        for (std::size_t done = 0; done < frames; done += block) {
            for (std::size_t c = 0; c < channels; ++c) audio[c] = answer[c].data() + done;
            chain.Process(audio.data(), static_cast<int>(std::min(block, frames - done)));
        }
        chain.Suspend();
    }
    return responses;
}

Figure PlotImpulseResponses(const ImpulseResponses& responses,
                            const std::string& title,
                            ImpulseScale scale) {
    const auto extent = FindExtent(responses);
    const auto at = [&](std::size_t frame) {
        return (static_cast<double>(frame) - responses.latencyFrames) /
               static_cast<double>(responses.rateHz);
    };
    const double lo = at(extent.first);
    const double hi = at(extent.second);
    const bool asLevel =
        scale == ImpulseScale::kLevel || (scale == ImpulseScale::kAuto && hi - lo > kLongSeconds);
    const std::size_t channels = responses.channelNames.size();
    const double margin = 0.02 * (hi - lo);
    Figure figure(title,
                  {"Time from the impulse (s)", lo - margin, hi + margin, AxisUnit::kSeconds},
                  900.0, 200.0 + 200.0 * static_cast<double>(channels));
    std::vector<FigurePanel*> panels;
    for (std::size_t out = 0; out < channels; ++out)
        panels.push_back(&figure.AddPanel(MakeImpulseAxis(responses, out, asLevel)));
    ForEachHeard(responses, [&](std::size_t in, std::size_t out,
                                const std::vector<float>& response) {
        FigureStyle style;
        style.color = static_cast<int>(in);
        style.width = 1.2;
        const std::string name = channels == 1 ? "" : "impulse in " + responses.channelNames[in];
        panels[out]->AddLine(TraceColumns(responses, response, extent, asLevel), name, style);
    });
    return figure;
}

Magnitude MeasureMagnitude(const std::vector<float>& response, double rateHz) {
    // Fine enough for a bin in every column down to the lowest frequency.
    constexpr std::size_t kLeastFrames = std::size_t{1} << 18;
    Spectrum spectrum(std::max(std::bit_ceil(response.size()), kLeastFrames));
    std::copy(response.begin(), response.end(), spectrum.begin());
    Transform(spectrum);
    const double binHz = rateHz / static_cast<double>(spectrum.size());
    const double ratio = std::log(rateHz / 2.0 / kLowestHz) / static_cast<double>(kColumns);
    Magnitude magnitude;
    for (std::size_t column = 0; column < kColumns; ++column) {
        const auto edge = [&](double at) {
            return static_cast<std::size_t>(kLowestHz * std::exp(ratio * at) / binHz);
        };
        const std::size_t first = edge(static_cast<double>(column));
        const std::size_t last = std::max(first + 1, edge(static_cast<double>(column) + 1.0));
        double sum = 0.0;
        double lo = std::norm(spectrum[first]);
        double hi = lo;
        for (std::size_t bin = first; bin < last; ++bin) {
            const double power = std::norm(spectrum[bin]);
            sum += power;
            lo = std::min(lo, power);
            hi = std::max(hi, power);
        }
        const double hz = kLowestHz * std::exp(ratio * (static_cast<double>(column) + 0.5));
        magnitude.mean.push_back({hz, ToDb(sum / static_cast<double>(last - first))});
        magnitude.range.push_back({hz, ToDb(lo), ToDb(hi)});
    }
    return magnitude;
}

std::vector<FigurePoint> GetTargetMagnitude(const ChainProcessor& chain, float rateHz) {
    const double ratio = std::log(static_cast<double>(rateHz) / 2.0 / kLowestHz);
    std::vector<FigurePoint> target(kColumns);
    for (std::size_t i = 0; i < kColumns; ++i)
        target[i].x = kLowestHz * std::exp(ratio * static_cast<double>(i) / (kColumns - 1));
    for (const AudioFilterPtr& filter : chain.GetFilters()) {
        std::vector<float> samples;
        constexpr int kCurve = components::ParametricEqualizer::kMagnitudeCurve;
        if (filter->GetCurveData(kCurve, kColumns, samples) != kColumns) return {};
        for (std::size_t i = 0; i < kColumns; ++i) target[i].y += static_cast<double>(samples[i]);
    }
    return target;
}

Figure PlotFrequencyResponses(const ImpulseResponses& responses,
                              const std::string& title,
                              const std::vector<FigurePoint>& target) {
    struct Trace {
        Magnitude magnitude;
        std::string name;
        const std::vector<float>* response;
    };
    std::vector<Trace> traces;
    ForEachHeard(
        responses, [&](std::size_t in, std::size_t out, const std::vector<float>& response) {
            const auto same = std::find_if(traces.begin(), traces.end(), [&](const Trace& trace) {
                return *trace.response == response;
            });
            const std::string name = NamePair(responses, in, out);
            if (same == traces.end())
                traces.push_back({MeasureMagnitude(response, responses.rateHz), name, &response});
            else
                same->name += ", " + name;
        });
    double highest = -200.0;
    double lowest = 200.0;
    for (const Trace& trace : traces)
        for (const FigureBand& band : trace.magnitude.range) {
            highest = std::max(highest, band.hi);
            lowest = std::min(lowest, band.lo);
        }
    const double top = 6.0 * std::ceil((highest + 1.0) / 6.0);
    const double bottom = std::max(top - kSpanDb, 6.0 * std::floor((lowest - 1.0) / 6.0));
    Figure figure(title, {"Frequency (Hz)", kLowestHz, static_cast<double>(responses.rateHz) / 2.0,
                          AxisUnit::kHertz, AxisScale::kLogarithmic});
    FigurePanel& panel = figure.AddPanel({"Magnitude (dB)", bottom, top, AxisUnit::kDecibel});
    if (!target.empty()) {
        FigureStyle wide;
        wide.color = FigureStyle::kGrey;
        wide.width = 6.0;
        wide.opacity = 0.35;
        panel.AddLine(target, "analog target", wide);
    }
    for (std::size_t t = 0; t < traces.size(); ++t) {
        FigureStyle style;
        style.color = static_cast<int>(t);
        FigureStyle light = style;
        light.opacity = 0.25;
        panel.AddBand(traces[t].magnitude.range, "", light);
        panel.AddLine(traces[t].magnitude.mean, traces[t].name, style);
    }
    return figure;
}

}  // namespace zuc::host
