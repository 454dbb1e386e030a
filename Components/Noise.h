#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Components/AudioOfflineComponent.h"
#include "Components/TableDriven.h"

namespace zuc::components {

struct NoiseSettings;

inline constexpr char16_t kNoiseComponentID[] = u"zuc.Noise";

/// Noise of any slope, level, distribution and band, in 1 to 32 channels; replaces the input.
///
///     out[c] = limit(level * n[c] + DC)     n[c]: noise of unit power, see dsp::NoiseSource
///
/// "Channels" says how the n[c] are related: all the same; independent; each pair of channels like two points
/// 17.5 cm apart in a diffuse sound field; or every further channel with the given correlation to the first.
/// "Level" is the RMS level of n[c] over the whole band; "Peak Limit" cuts samples off and lowers it where it
/// bites. A seed from 1 up gives the same noise each time, 0 new noise for each run.
///
/// An offline run makes as many frames as its range, or "Duration" when the range is empty. Process makes the
/// same noise block by block, without end; a change of any parameter but the duration fades into new noise
/// over 50 ms. Latency 0, tail 0. Reads nothing; `in[c]` and `out[c]` may be the same buffer.
class ZUC_API Noise final : public TableDriven<MultiChannelOfflineComponent> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kColor,             // see dsp::NoiseColor
        kSlopeDbPerOctave,  // -12 to +12, of the colour "Custom"
        kLevelDb,           // -120 to 0, RMS
        kChannels,          // same, independent, diffuse, by correlation
        kCorrelation,       // -1 to 1, of "By Correlation"
        kDistribution,      // Gaussian, uniform, triangular; of the noise before it is coloured
        kOffsetPercent,     // DC, -100 to 100
        kSeed,              // 0 to 65535
        kLowLimitHz,        // 0 to 20000; 0: none
        kHighLimitHz,       // 20 to 96000; none from 0.49 of the sample rate on
        kDurationSeconds,   // 0.001 to 86400
        kPeakLimitDb,       // -24 to 0
        kParameterCount
    };

    Noise();
    ~Noise() override;

    bool IsGenerator() const override { return true; }  // [host]
    void SetSampleRate(float rateHz) override;          // [host]
    void Resume() override;                             // [audio]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]

    void Cancel() override;  // [any]
    /// False when a run is under way or there is no writer. [host]
    bool OfflineRun(std::int64_t start, std::int64_t end) override;
    /// Takes up to the second number of frames from the writer; the other numbers do not count. [host]
    int OfflineProcess(float** in, float** out, int inFrames, int outFrames, int flags) override;
    bool OfflineProcessFinished() override;                                          // [any]
    void SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) override;  // [host]
    void SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) override;  // [host]
    void SetProgressHandler(float volatile* progressPercent) override;               // [host]
    bool WantsToHandleProgress() const override { return true; }

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    struct Player;
    NoiseSettings DeriveSettings() const;
    void SetupParameterInfos();

    std::unique_ptr<Player> player_;
};

}  // namespace zuc::components
