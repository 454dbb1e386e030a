#include "Components/Catalogue.h"

#include <array>

#include "Components/Amplify.h"
#include "Components/Chorus.h"
#include "Components/Delay.h"
#include "Components/Dynamics.h"
#include "Components/Echo.h"
#include "Components/FadeEnvelope.h"
#include "Components/GainEnvelope.h"
#include "Components/HardLimiter.h"
#include "Components/IntraClipComponent.h"
#include "Components/MusicRetarget.h"
#include "Components/Noise.h"
#include "Components/ParametricEqualizer.h"
#include "Components/VolumeEnvelope.h"

namespace zuc::components {
namespace {

template <class Effect>
kraaudiofilterhost::AudioFilterPtr Create() {
    return new Effect;
}

// clang-format off
constexpr std::array kCatalogue{
    //             identifier                  title key                                                  category                 creator
    CatalogueEntry{kAmplifyComponentID,        "$$$/AudioComponents/AmplifyTitle=Amplify",                Category::kAmplitude,   Create<Amplify>},
    CatalogueEntry{kDynamicsComponentID,       "$$$/AudioComponents/DynamicsProcessingTitle=Dynamics Processing", Category::kAmplitude, Create<Dynamics>},
    CatalogueEntry{kHardLimiterComponentID,    "$$$/AudioComponents/HardLimiterTitle=Hard Limiter",       Category::kAmplitude,   Create<HardLimiter>},
    CatalogueEntry{kIntraClipComponentComponentID, "$$$/AudioComponents/SpeechVolumeLevelerTitle=Speech Volume Leveler", Category::kAmplitude, Create<IntraClipComponent>},
    CatalogueEntry{kGainEnvelopeComponentID,   "$$$/AudioComponents/GainEnvelopeTitle=Gain Envelope",     Category::kAmplitude,   Create<GainEnvelope>},
    CatalogueEntry{kVolumeEnvelopeComponentID, "$$$/AudioComponents/VolumeEnvelopeTitle=Volume Envelope", Category::kAmplitude,   Create<VolumeEnvelope>},
    CatalogueEntry{kFadeEnvelopeComponentID,   "$$$/AudioComponents/FadeEnvelopeTitle=Fade Envelope",     Category::kAmplitude,   Create<FadeEnvelope>},
    CatalogueEntry{kParametricEqualizerComponentID, "$$$/AudioComponents/ParametricEqualizerTitle=Parametric Equalizer", Category::kFilter, Create<ParametricEqualizer>},
    CatalogueEntry{kDelayComponentID,          "$$$/AudioComponents/DelayTitle=Delay",                    Category::kDelayReverb, Create<Delay>},
    CatalogueEntry{kEchoComponentID,           "$$$/AudioComponents/EchoTitle=Echo",                      Category::kDelayReverb, Create<Echo>},
    CatalogueEntry{kChorusComponentID,         "$$$/AudioComponents/ChorusTitle=Chorus",                  Category::kModulation,  Create<Chorus>},
    CatalogueEntry{kNoiseComponentID,          "$$$/AudioComponents/NoiseTitle=Generate Noise",           Category::kGenerator,   Create<Noise>},
    CatalogueEntry{kMusicRetargetComponentID,  "$$$/AudioComponents/MusicRetargetTitle=Remix",            Category::kRemix,       Create<MusicRetarget>},
};
// clang-format on

}  // namespace

std::span<const CatalogueEntry> GetCatalogue() { return kCatalogue; }

}  // namespace zuc::components
