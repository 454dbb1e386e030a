#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Components/Song.h"

namespace zuc::host {

/// Analyses of songs, kept by the content of the file they were made from.
///
/// One file per song in $XDG_CACHE_HOME/zuc/songs or ~/.cache/zuc/songs. Names carry the version of the
/// analysis, so results of an older one are never read. The folder may be deleted at any time; when it
/// holds more than 256 MB, the songs used longest ago are removed. Nothing here fails: what cannot be
/// read or kept is analysed again. All operations are [host].
class SongCache {
public:
    /// "" keeps nothing.
    explicit SongCache(std::string folder = GetDefaultFolder()) : folder_(std::move(folder)) {}
    static std::string GetDefaultFolder();

    /// What identifies the bytes of a file: empty for what cannot be read twice (pipes, "-").
    static std::string MakeKey(const std::string& path);

    std::optional<components::SongAnalysis> Find(const std::string& key) const;
    void Store(const std::string& key, const components::SongAnalysis& song) const;

private:
    std::string GetPath(const std::string& key) const;
    void RemoveOldest() const;

    std::string folder_;
};

}  // namespace zuc::host
