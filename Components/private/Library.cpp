#include "Components/Library.h"

#include <vector>

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

/// Made before they are registered, so that to unregister them takes no memory.
std::vector<WStr>& RegisteredFilters() {
    static std::vector<WStr> identifiers;
    return identifiers;
}

void Start() {
    RegisteredFilters().clear();
    for (const auto& entry : components::GetCatalogue())
        RegisteredFilters().emplace_back(entry.identifier);
    for (const auto& entry : components::GetCatalogue())
        kraaudiofilterhost::utility::RegisterAudioFilter(WStr(entry.identifier), entry.create);
    RegisterConsoleCommands();
    components::EffectThreadPool::Create();
}

/// Takes back what Start did, or began to do.
void End() {
    components::EffectThreadPool::Destroy();
    UnregisterConsoleCommands();
    for (const WStr& identifier : RegisteredFilters())
        kraaudiofilterhost::utility::UnregisterAudioFilter(identifier);
    kraaudiofilterhost::Terminate();
}

}  // namespace

void Initialize() {
    if (initializations == 0) {
        kraaudiofilterhost::Initialize();
        try {
            Start();
        } catch (...) {
            End();
            throw;
        }
    }
    ++initializations;
}

void Terminate() {
    if (--initializations == 0) End();
}

WStr GetTempDir() { return TempDir(); }

void SetupTempDir(const WStr& path) { TempDir() = path; }

}  // namespace zuc
