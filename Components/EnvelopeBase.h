#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "Components/CurveReader.h"
#include "Components/KeyframeContainer.h"
#include "Components/TableDriven.h"

namespace zuc::components {

/// Base of the effects that multiply the audio by a curve: the curve itself, its place in the source,
/// and its travel into gains.
///
/// A keyframe's time is a frame of the source, the same count that SetCurrentOffset gives; a change of
/// the sample rate moves keyframes to where they were in seconds. A preset's curve stretches over the
/// selection (SetSelectionLeft, SetCurrentDuration) and follows it until the curve is edited; without a
/// selection it is empty. Every change of the gain that the curve itself does not make (a parameter, an
/// edit while playing) fades in over 10 ms. Settings hold the curve. Latency 0, tail 0, any layout of 1
/// to 32 channels; all channels get the same gain.
class ZUC_API EnvelopeBase : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;

    ~EnvelopeBase() override;

    void SetSampleRate(float rateHz) override;            // [host]
    void SetSelectionLeft(double seconds) override;       // [host]
    void SetCurrentDuration(double seconds) override;     // [host]
    void SetCurrentOffset(std::int64_t frames) override;  // [audio]
    void SetFactoryPreset(int preset) override;           // [host] may allocate: it makes a curve
    bool LoadSettings(const kraaudiofilterhost::PresetData& preset) override;    // [host]
    void SaveSettings(kraaudiofilterhost::PresetData& preset) const override;    // [host]
    bool LoadCustomData(const kraaudiofilterhost::PresetData& preset) override;  // [host]
    /// Curve 0: the curve's levels at `points` even steps over the selection. [host]
    std::size_t GetCurveData(int curve, std::size_t points, std::vector<float>& levels) override;
    void Resume() override;  // [audio]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]

    /// The curve, for reading and editing; the same object for the life of the effect. [any]
    const KeyframeContainerPtr& GetCurve() const { return curve_; }
    /// What GetLevel gives and ToCurveValue takes: "dB" or "%". [any]
    virtual std::string_view GetLevelUnit() const = 0;
    /// The level that a value of the curve stands for, with the present parameters, and the reverse,
    /// clamped to [0, 1]. Silence is -infinity dB. [host]
    virtual float GetLevel(float curveValue) const = 0;
    virtual float ToCurveValue(float level) const = 0;

protected:
    /// One keyframe of a preset's curve, at a fraction of the selection or so many seconds into it.
    struct CurvePoint {
        double at = 0.0;
        float level = 0.0f;
        bool hold = false;
        bool isInSeconds = false;
    };
    using CurvePreset = std::span<const CurvePoint>;

    /// `curvePresets` has one row for each preset of the tables, empty for a flat curve.
    EnvelopeBase(const EffectTables& tables,
                 const WStr& componentID,
                 KeyframeContainerPtr curve,
                 std::span<const CurvePreset> curvePresets,
                 const CurveReader& reader);

    /// Takes up the parameters. [audio]
    virtual void TakeSettings() = 0;
    /// Turns the curve's values of `frames` frames from `first` on into linear gains, in place. When
    /// `isLevel`, only gains[0] is given and holds for all; answers whether the same is true of the
    /// gains, and gives all of them when not. [audio]
    virtual bool MakeGains(std::int64_t first, bool isLevel, float* gains, int frames) = 0;
    /// How long a hold's end fades, in frames. [audio]
    virtual int GetEdgeFrames() const { return 0; }

    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]
    /// The selection in frames; a width of 0 when there is none. [host]
    std::int64_t GetSelectionFrame() const;
    std::int64_t GetSelectionFrames() const;

private:
    void UpdateSelection();
    void MakePresetCurve();
    void MoveKeyframes(double factor);
    int ProcessPiece(const float* const* in, float* const* out, int first, int frames);
    void StartRamp(int frames, float gain);
    bool AddRamp(bool isLevel, int frames);

    KeyframeContainerPtr curve_;
    std::span<const CurvePreset> curvePresets_;
    int presetCurve_ = -1;  // the preset whose curve stands, unedited; -1 for none

    CurveReader reader_;
    std::size_t channelCount_ = 2;
    std::int64_t position_ = 0;  // frame of the source that comes next
    bool settingsChanged_ = false;
    bool hasLastGain_ = false;
    float lastGain_ = 1.0f;        // of the frame before
    int changeFrames_ = 1;         // of a ramp after a change; follows the sample rate
    int rampFrames_ = 0;           // of the ramp under way
    int rampPosition_ = 0;         // frames of it done
    float rampDifference_ = 0.0f;  // linear; fades to 0 along the ramp
    std::array<float, kMaxPieceFrames> gains_{};
};

}  // namespace zuc::components
