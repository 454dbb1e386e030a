#include "ChainArguments.h"

#include "host/Automation.h"
#include "host/EffectCatalogue.h"

namespace zuc::cli {

host::Chain MakeChain(const ChainArguments& arguments, host::Faults& faults) {
    host::Chain chain;
    const auto addFile = [&](const std::string& path) {
        const host::Chain more = host::ReadChainFile(path);
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
    const host::EffectCatalogue catalogue;
    for (const std::string& text : arguments.automation)
        faults.Try([&] { host::AddAutomation(chain, catalogue, text); });
    return chain;
}

}  // namespace zuc::cli
