#include "Components/Library.h"

#include "Components/Catalogue.h"
#include "Components/EffectThreadPool.h"
#include "Components/private/ConsoleCommands.h"
#include "kraaudiofilterhost/FilterCatalogue.h"

namespace zuc {
namespace {

int initializations = 0;

WStr& TempDir() {
    static WStr path;
    return path;
}

}  // namespace

void Initialize() {
    if (initializations > 0) {
        ++initializations;
        return;
    }
    RegisterConsoleCommands();
    kraaudiofilterhost::Initialize();
    for (const auto& entry : components::GetCatalogue())
        kraaudiofilterhost::utility::RegisterAudioFilter(WStr(entry.identifier), entry.create);
    components::EffectThreadPool::Create();
    ++initializations;
}

void Terminate() {
    if (--initializations != 0) return;
    components::EffectThreadPool::Destroy();
    for (const auto& entry : components::GetCatalogue())
        kraaudiofilterhost::utility::UnregisterAudioFilter(WStr(entry.identifier));
    kraaudiofilterhost::Terminate();
    UnregisterConsoleCommands();
}

WStr GetTempDir() { return TempDir(); }

void SetupTempDir(const WStr& path) { TempDir() = path; }

}  // namespace zuc
