// A program of somebody else: finds the installed library, raises a block by 6 dB, checks the result.
#include <array>
#include <cmath>
#include <cstdio>

#include "Components/Amplify.h"
#include "Components/Library.h"
#include "kraaudiofilterhost/FilterCatalogue.h"

namespace {

constexpr int kFrames = 64;
constexpr float kGainDb = 6.0f;

int Run() {
    const auto filter =
        kraaudiofilterhost::utility::CreateAudioFilter(zuc::components::kAmplifyComponentID);
    if (filter == nullptr) return 1;
    filter->SetSampleRate(48000.0f);
    filter->SetBlockSize(kFrames);
    for (int channel = 0; channel < 2; ++channel) {
        const int index = zuc::components::Amplify::kFirstGain + channel;
        filter->SetParameter(index, filter->GetParameterInfo(index)->ToNormalized(kGainDb));
    }
    filter->Resume();

    std::array<std::array<float, kFrames>, 2> in;
    std::array<std::array<float, kFrames>, 2> out;
    for (auto& channel : in) channel.fill(0.25f);
    std::array<float*, 2> inputs{in[0].data(), in[1].data()};
    std::array<float*, 2> outputs{out[0].data(), out[1].data()};
    kraaudiofilterhost::Flags outFlags;
    filter->Process(inputs.data(), outputs.data(), kFrames, {}, outFlags);

    const float expected = 0.25f * std::pow(10.0f, kGainDb / 20.0f);
    for (const auto& channel : out)
        for (const float sample : channel)
            if (!(std::fabs(sample - expected) < 1e-5f)) {
                std::printf("expected %g, got %g\n", expected, sample);
                return 2;
            }
    // The type is one object on both sides of the library's border.
    return dynamic_cast<zuc::components::Amplify*>(filter.get()) != nullptr ? 0 : 3;
}

}  // namespace

int main() {
    zuc::Initialize();
    const int result = Run();
    zuc::Terminate();
    return result;
}
