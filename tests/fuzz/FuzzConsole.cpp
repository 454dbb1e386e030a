// Console lines: known or not, and whatever they set, the effects that they reach give finite output.

#include "host/EffectCatalogue.h"
#include "kraaudiodsp/IntraClipParam.h"
#include "kracore/Console.h"
#include "kracore/DebugDatabase.h"
#include "kracore/WStr.h"
#include "tests/fuzz/Fuzz.h"

void zuc::fuzz::Run(std::string_view input) {
    static const host::EffectCatalogue catalogue;
    // What lines of other inputs set must not matter.
    dsp::intraclip::SetGlobalParam({});
    for (const auto& [name, value] : kracore::debug::DebugDatabase::GetAll())
        kracore::debug::DebugDatabase::Remove(name);
    while (!input.empty()) {
        const auto end = input.find('\n');
        kracore::console::OutputStream out;
        kracore::console::CommandRegistry::Execute(kracore::utility::FromUtf8(input.substr(0, end)),
                                                   out);
        kracore::utility::ToUtf8(out.GetText());
        input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
    }
    const auto leveler =
        host::CreateForFormat(catalogue.Find("speech-volume-leveler"), 48000.0f, 2, 1024);
    Process(*leveler);
}
