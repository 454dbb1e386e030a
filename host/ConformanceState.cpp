#include "host/ConformanceRun.h"

#include <clocale>
#include <cmath>
#include <limits>
#include <locale>
#include <set>

#include "kraaudiofilterhost/PresetData.h"
#include "kracore/PropList.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host::conformance {

void CheckParameters(Run& run) {
    Rig rig = run.MakeRig();
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    for (const int index : rig.GetSoundParameters()) {
        const auto info = filter.GetParameterInfo(index);
        for (const float normalized : {0.0f, 0.125f, 0.37f, 0.5f, 0.9f, 1.0f}) {
            filter.SetParameterAutomated(index, normalized);
            const bool isSwitch =
                info->GetRole() == kraaudiofilterhost::AudioFilterParameterRole::kSwitch;
            const float got = filter.GetParameter(index);
            const bool kept = isSwitch ? (got >= 0.5f) == (normalized >= 0.5f)
                                       : std::fabs(got - normalized) < 1e-6f;
            run.Expect(kept,
                       fmt::format("parameter {} set to {} answers {}", index, normalized, got));
            const float value = info->FromNormalized(normalized);
            run.Expect(
                std::fabs(info->ToNormalized(value) - normalized) < 1e-5f,
                fmt::format("parameter {}: the mapping does not invert at {}", index, normalized));
        }
        filter.SetParameterAutomated(index, 0.37f);  // no end, where clamping would hide
        const float before = filter.GetParameter(index);
        for (const float bad :
             {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
              -std::numeric_limits<float>::infinity()}) {
            filter.SetParameter(index, bad);
            filter.SetParameterAutomated(index, bad);
        }
        run.Expect(filter.GetParameter(index) == before,
                   fmt::format("parameter {} took a value that is not finite", index));
        run.Expect(!info->GetName().empty() && !info->GetIdentifier().empty(),
                   fmt::format("parameter {} has no name", index));
    }
    for (const int unknown : {-1, filter.GetParameterCount(), std::numeric_limits<int>::max(),
                              std::numeric_limits<int>::min()}) {
        filter.SetParameter(unknown, 0.5f);
        filter.SetParameterAutomated(unknown, 0.5f);
        filter.BeginEditing(unknown);
        filter.EndEditing(unknown);
        run.Expect(!filter.GetParameterInfo(unknown) &&
                       filter.GetParameterString(unknown).empty() &&
                       std::isfinite(filter.GetParameter(unknown)),
                   fmt::format("index {} is answered as if it were a parameter", unknown));
    }
}

namespace {

std::vector<float> ReadParameters(kraaudiofilterhost::AudioFilter& filter) {
    std::vector<float> values;
    values.reserve(static_cast<std::size_t>(filter.GetParameterCount()));
    for (int i = 0; i < filter.GetParameterCount(); ++i) values.push_back(filter.GetParameter(i));
    return values;
}

}  // namespace

void CheckPresets(Run& run) {
    Rig rig = run.MakeRig();
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    const int count = filter.GetNumFactoryPresets();
    std::set<kracore::WStr> names;
    for (int preset = 0; preset < count; ++preset) {
        const auto name = filter.GetFactoryPresetName(preset);
        run.Expect(!name.empty() && names.insert(name).second,
                   fmt::format("preset {} has no name of its own", preset));
        rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(preset));
        filter.SetFactoryPreset(preset);
        const auto once = ReadParameters(filter);
        Rig other = run.MakeRig();
        other.Filter().SetFactoryPreset(preset);
        for (const int index : rig.GetSoundParameters())
            run.Expect(once[static_cast<std::size_t>(index)] == other.Filter().GetParameter(index),
                       fmt::format("preset {} leaves parameter {} as it was", preset, index));
        run.Expect(
            std::all_of(once.begin(), once.end(), [](float n) { return n >= 0.0f && n <= 1.0f; }),
            fmt::format("preset {} sets a value outside its range", preset));
        rig.Resume();
        run.Expect(IsFinite(rig.Render(Noise(run, 2, kShortFrames), 512)),
                   fmt::format("preset {} gives output that is not finite", preset));
    }
    const auto before = ReadParameters(filter);
    for (const int unknown : {-1, count, std::numeric_limits<int>::max()}) {
        filter.SetFactoryPreset(unknown);
        run.Expect(filter.GetFactoryPresetName(unknown).empty() && ReadParameters(filter) == before,
                   fmt::format("preset {} is answered as if it existed", unknown));
    }
}

void CheckSettings(Run& run) {
    Rig rig = run.MakeRig();
    rig.Randomize(run.Options().seed);
    kracore::proplist::PropList list;
    kraaudiofilterhost::PresetData preset(list);
    rig.Filter().SaveSettings(preset);
    list.Set("FromTheFuture", kracore::WStr(u"kept"));
    auto read = kracore::proplist::FromJson(kracore::proplist::ToJson(list));
    const kraaudiofilterhost::PresetData loaded(read);

    Rig other = run.MakeRig();
    run.Expect(other.Filter().LoadSettings(loaded), "its own settings are refused");
    run.Expect(ReadParameters(other.Filter()) == ReadParameters(rig.Filter()),
               "parameters differ after saving and loading");
    const auto clone = rig.Filter().Clone();
    run.Expect(clone && ReadParameters(*clone) == ReadParameters(rig.Filter()), "a clone differs");
    rig.Resume();
    other.Resume();
    const Signal noise = Noise(run, 2, kShortFrames);
    run.ExpectSame(other.Render(noise, 512), rig.Render(noise, 512), "after saving and loading");

    kracore::proplist::PropList again;
    kraaudiofilterhost::PresetData savedAgain(again);
    other.Filter().SaveSettings(savedAgain);
    run.Expect(again.Has("FromTheFuture"), "a key of a later version is lost");

    const auto before = ReadParameters(other.Filter());
    std::list<float> tooFew;
    kraaudiofilterhost::PresetData(list).GetParams(tooFew);
    tooFew.pop_back();
    tooFew.pop_back();
    kraaudiofilterhost::PresetData(list).SetParams(tooFew);
    run.Expect(!other.Filter().LoadSettings(preset) && ReadParameters(other.Filter()) == before,
               "settings with too few parameters are taken");
}

namespace {

/// While it lives a comma marks the decimals and a point the thousands, for C++ and, where the system
/// has such a locale, for C. Of the whole process, as hosts with windows set it.
// NOLINTBEGIN(concurrency-mt-unsafe): that is what is tried here
class CommaLocale {
public:
    CommaLocale() {
        for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "fr_FR"})
            if (std::setlocale(LC_ALL, name)) break;
    }
    ~CommaLocale() {
        std::locale::global(previous_);
        std::setlocale(LC_ALL, name_.c_str());
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

private:
    struct Comma final : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::string name_ = std::setlocale(LC_ALL, nullptr);
    std::locale previous_ = std::locale::global(std::locale(std::locale(), new Comma));
};
// NOLINTEND(concurrency-mt-unsafe)

std::string SaveAsText(kraaudiofilterhost::AudioFilter& filter) {
    kracore::proplist::PropList list;
    kraaudiofilterhost::PresetData preset(list);
    filter.SaveSettings(preset);
    return kracore::proplist::ToJson(list);
}

std::vector<kracore::WStr> ReadTexts(kraaudiofilterhost::AudioFilter& filter) {
    std::vector<kracore::WStr> texts;
    for (int i = 0; i < filter.GetParameterCount(); ++i)
        texts.push_back(filter.GetParameterString(i));
    return texts;
}

}  // namespace

void CheckLocales(Run& run) {
    Rig rig = run.MakeRig();
    rig.Randomize(run.Options().seed);
    const std::string text = SaveAsText(rig.Filter());
    const auto texts = ReadTexts(rig.Filter());
    const CommaLocale locale;
    run.Expect(SaveAsText(rig.Filter()) == text, "settings are saved in another form");
    run.Expect(ReadTexts(rig.Filter()) == texts, "parameters read differently");
    Rig other = run.MakeRig();
    auto list = kracore::proplist::FromJson(text);
    run.Expect(other.Filter().LoadSettings(kraaudiofilterhost::PresetData(list)) &&
                   SaveAsText(other.Filter()) == text,
               "settings of another locale load with other values");
}

void CheckLayouts(Run& run) {
    Rig rig = run.MakeRig();
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    const auto request = [&](std::size_t in, std::size_t out) {
        filter.RequestIOConfiguration({kramediatypes::LayoutForChannelCount(in)},
                                      {kramediatypes::LayoutForChannelCount(out)});
        return filter.GetOutputBuses().front().GetChannelCount();
    };
    run.Expect(request(6, 6) == 6, "5.1 is refused");
    run.Expect(request(2, 1) == 6 && request(0, 0) == 6,
               "unequal or empty layouts change the buses");
    filter.RequestIOConfiguration(
        {kramediatypes::LayoutForChannelCount(2), kramediatypes::LayoutForChannelCount(2)},
        {kramediatypes::LayoutForChannelCount(2), kramediatypes::LayoutForChannelCount(2)});
    run.Expect(filter.GetOutputBuses().front().GetChannelCount() == 6,
               "two output buses change the buses");
    run.Expect(request(33, 33) == 1, "33 channels do not give a mono bus");
    run.Expect(filter.GetInputBuses().front().GetLayout() == kramediatypes::MonoLayout(),
               "33 channels do not give a mono layout");
    run.Expect(request(2, 2) == 2 && request(1, 1) == 1, "mono or stereo is refused");
}

}  // namespace zuc::host::conformance
