// Saved settings of any effect: taken up whole or refused. What was taken up is the same after it was saved and
// taken up again, and the effect's output is finite. Ranges of a remix are kept in such lists too.

#include "Components/AudioComponentZombie.h"
#include "Components/MusicRetargetResults.h"
#include "host/EffectCatalogue.h"
#include "host/PluginInfo.h"
#include "kraaudiofilterhost/FilterCatalogue.h"
#include "tests/fuzz/Fuzz.h"

namespace zuc::fuzz {
namespace {

using kraaudiofilterhost::PresetData;
using kracore::proplist::PropList;

host::AudioFilterPtr MakeEffect(const PresetData& preset) {
    constexpr unsigned long kUnknownParameterCount = 3;
    const kracore::WStr identifier = preset.GetComponentID();
    auto effect = kraaudiofilterhost::utility::CreateAudioFilter(identifier);
    if (!effect)
        effect = new components::AudioComponentZombie(identifier, u"Unknown",
                                                      kUnknownParameterCount, false);
    effect->SetSampleRate(48000.0f);
    effect->SetBlockSize(1024);
    host::RequestChannels(*effect, 2);
    return effect;
}

void CheckResults(const PropList& list) {
    components::MusicRetargetResults results;
    if (!ReadFromPropertyList(list, results)) return;
    PropList saved;
    WriteToPropertyList(results, saved);
    components::MusicRetargetResults again;
    Require(ReadFromPropertyList(saved, again) && again == results);
}

}  // namespace

void Run(std::string_view input) {
    PropList list;
    try {
        list = kracore::proplist::FromJson(input);
    } catch (const kracore::proplist::ParseError&) {
        return;
    }
    CheckResults(list);
    const PresetData preset(list);
    const auto effect = MakeEffect(preset);
    if (!effect->LoadSettings(preset)) return;
    const std::string saved = host::SaveFilterSettings(*effect);
    PropList savedList = kracore::proplist::FromJson(saved);
    const auto again = MakeEffect(PresetData(savedList));
    Require(again->LoadSettings(PresetData(savedList)));
    Require(host::SaveFilterSettings(*again) == saved);
    Process(*effect);
}

}  // namespace zuc::fuzz
