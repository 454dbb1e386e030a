#pragma once

#include <memory>

#include "kracore/Export.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::components {

/// Measures a programme: integrated loudness (ITU-R BS.1770-4) and true peak.
///
/// Surround channels (side, back) count 1.41 times, low-frequency effects not at all; the true peak is that of
/// any channel. Samples that are not finite count as 0.
class ZUC_API LoudnessMeter {
public:
    LoudnessMeter(float rateHz, const kramediatypes::AudioChannelLayout& layout);  // [host]
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    /// Takes the next frames of all channels. [audio]
    void Process(const float* const* in, int frames);

    /// The programme is over: what lies between its last samples counts too. Once. [audio]
    void Finish();

    /// -infinity for silence and for less than 400 ms. [audio]
    double GetIntegratedLufs() const;
    float GetTruePeak() const;  // linear [audio]

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zuc::components
