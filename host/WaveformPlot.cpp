#include "host/WaveformPlot.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "host/AudioReader.h"
#include "host/Faults.h"
#include "host/RenderSource.h"

namespace zuc::host {
namespace {

constexpr std::size_t kColumns = 1600;  // of a picture; each shows the extremes of its frames
constexpr int kBlockFrames = 8192;
constexpr double kPanelHeight = 170.0;

/// The extremes of every channel of a file, column by column.
struct Waveform {
    std::string path;
    int rateHz = 0;
    double beginSeconds = 0.0;
    double endSeconds = 0.0;
    std::vector<std::vector<FigureBand>> channels;
};

/// Lowest and highest sample of each stretch of frames. Stretches are joined in pairs whenever there
/// are too many, so that the length need not be known.
class Extremes {
public:
    void Add(float sample) {
        low_ = std::min(low_, sample);
        high_ = std::max(high_, sample);
        if (++count_ == stretchFrames_) Close();
    }
    std::vector<FigureBand> Finish(double beginSeconds, double rateHz) {
        if (count_ > 0) Close();
        std::vector<FigureBand> bands;
        for (std::size_t i = 0; i < stretches_.size(); ++i)
            bands.push_back({beginSeconds + static_cast<double>(i) *
                                                static_cast<double>(stretchFrames_) / rateHz,
                             stretches_[i].first, stretches_[i].second});
        return bands;
    }

private:
    void Close() {
        stretches_.emplace_back(low_, high_);
        low_ = high_ = 0.0f;
        count_ = 0;
        if (stretches_.size() < 2 * kColumns) return;
        for (std::size_t i = 0; i < kColumns; ++i)
            stretches_[i] = {std::min(stretches_[2 * i].first, stretches_[2 * i + 1].first),
                             std::max(stretches_[2 * i].second, stretches_[2 * i + 1].second)};
        stretches_.resize(kColumns);
        stretchFrames_ *= 2;
    }

    std::vector<std::pair<float, float>> stretches_;
    std::int64_t stretchFrames_ = 1;
    std::int64_t count_ = 0;
    float low_ = 0.0f;
    float high_ = 0.0f;
};

Waveform ReadWaveform(const std::string& path, const TimeRange& range) {
    const auto reader = AudioReader::Open(path);
    const int rateHz = reader->GetInfo().rateHz;
    const auto channels = static_cast<std::size_t>(reader->GetInfo().channels);
    RenderSource source(*reader, range, rateHz, kBlockFrames);
    source.Rewind();
    AudioBlock block(channels, kBlockFrames);
    std::vector<Extremes> extremes(channels);
    while (const int frames = source.Read(block.GetChannels(), kBlockFrames))
        for (std::size_t c = 0; c < channels; ++c)
            for (int i = 0; i < frames; ++i) extremes[c].Add(block.GetChannels()[c][i]);
    Waveform waveform{path, rateHz, range.beginSeconds, range.beginSeconds, {}};
    waveform.endSeconds += static_cast<double>(source.GetFramesRead()) / rateHz;
    for (Extremes& channel : extremes)
        waveform.channels.push_back(channel.Finish(range.beginSeconds, rateHz));
    return waveform;
}

float GetPeak(const std::vector<Waveform>& waveforms) {
    double peak = 0.0;
    for (const Waveform& waveform : waveforms)
        for (const auto& channel : waveform.channels)
            for (const FigureBand& band : channel) peak = std::max({peak, -band.lo, band.hi});
    return static_cast<float>(peak);
}

}  // namespace

Figure PlotWaveforms(const std::vector<std::string>& paths, const TimeRange& range) {
    Faults faults;
    std::vector<Waveform> waveforms;
    for (const std::string& path : paths)
        faults.Try([&] { waveforms.push_back(ReadWaveform(path, range)); });
    faults.ThrowIfAny();

    double endSeconds = range.beginSeconds;
    std::size_t panelCount = 0;
    for (const Waveform& waveform : waveforms) {
        endSeconds = std::max(endSeconds, waveform.endSeconds);
        panelCount += waveform.channels.size();
    }
    // Full scale, unless the samples go beyond it.
    const double scale = std::max(1.0, static_cast<double>(GetPeak(waveforms)));
    Figure figure("Waveform", {"Time (s)", range.beginSeconds, endSeconds, AxisUnit::kSeconds},
                  1000.0, 110.0 + kPanelHeight * static_cast<double>(panelCount));
    int color = 0;
    for (const Waveform& waveform : waveforms) {
        for (std::size_t c = 0; c < waveform.channels.size(); ++c) {
            FigurePanel& panel = figure.AddPanel(
                {fmt::format("Channel {}", c + 1), -scale, scale, AxisUnit::kNumber});
            FigureStyle style;
            style.color = color % 6;
            panel.AddBand(waveform.channels[c], c == 0 ? waveform.path : "", style);
        }
        ++color;
    }
    return figure;
}

}  // namespace zuc::host
