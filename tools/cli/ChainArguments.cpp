#include "ChainArguments.h"

#include "Console.h"
#include "host/Automation.h"
#include "host/EffectCatalogue.h"
#include "host/Text.h"

namespace zuc::cli {

host::Chain MakeChain(const ChainArguments& arguments, host::Faults& faults, host::Chain chain) {
    const host::EffectCatalogue catalogue;
    const auto addFile = [&](const std::string& path) {
        const host::Chain more = host::ReadChainFile(path, &catalogue);
        chain.insert(chain.end(), more.begin(), more.end());
    };
    if (!arguments.chainFile.empty()) faults.Try([&] { addFile(arguments.chainFile); });
    for (const std::string& text : arguments.effects)
        faults.Try([&] {
            if (text.starts_with('@'))
                addFile(text.substr(1));
            else
                chain.push_back(host::ParseStepText(text));
        });
    for (const std::string& text : arguments.automation)
        faults.Try([&] { host::AddAutomation(chain, catalogue, text); });
    return chain;
}

void WarnOfPlaceholders(const host::Chain& chain) {
    std::vector<std::string> known;
    const host::EffectCatalogue catalogue;
    for (const host::Effect& effect : catalogue.GetEffects()) known.push_back(effect.slug);
    for (const host::ChainStep& step : chain) {
        if (step.placeholder.empty()) continue;
        const std::string hint = host::DidYouMean(step.effect, known);
        SayWarning("there is no effect '" + step.effect +
                   "' here: the audio passes its place unchanged, and its settings are kept" +
                   (hint.empty() ? "" : "; " + hint));
    }
}

}  // namespace zuc::cli
