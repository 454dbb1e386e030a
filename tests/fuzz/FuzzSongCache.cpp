// Files of the song cache: not found, or a song that is stored and found again the same, that can be written as text, and
// whose remix is searched and played without harm.

#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/AudioSource.h"
#include "host/BeatAnalysis.h"
#include "host/OfflineSession.h"
#include "host/RemixSearch.h"
#include "host/RenderSource.h"
#include "host/SongCache.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/TemporaryFolder.h"

namespace zuc::fuzz {
namespace {

constexpr int kRateHz = 1000;
constexpr int kBlockFrames = 1024;
constexpr double kMostSeconds = 60.0;

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Remix(const components::SongAnalysis& song) {
    host::SilentSource source(kRateHz, 1,
                              static_cast<std::int64_t>(song.durationSeconds * kRateHz));
    const auto effect = host::MakeRemixEffect(source.GetInfo());
    effect->SetFactoryPreset(0);
    effect->GetRetargetData()->SetSong(std::make_shared<components::Song>(song));
    host::OfflineSession session(effect, source, source.GetInfo().frames);
    host::AudioBlock block(1, kBlockFrames);
    while (session.Read(block.GetChannels(), kBlockFrames) > 0) continue;
}

}  // namespace

void Run(std::string_view input) {
    static const TemporaryFolder folder;
    static const host::SongCache cache(folder.GetPath());
    static const std::filesystem::path path = [] {
        cache.Store("fuzz", {});
        return std::filesystem::directory_iterator(folder.GetPath())->path();
    }();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << input;
    const auto song = cache.Find("fuzz");
    if (!song) return;
    cache.Store("fuzz", *song);
    Require(ReadFile(path) == input);
    host::BeatsToJson(*song);
    host::BeatsToLabels(*song);
    if (song->durationSeconds <= kMostSeconds) Remix(*song);
}

}  // namespace zuc::fuzz
