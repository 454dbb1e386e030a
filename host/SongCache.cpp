#include "host/SongCache.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <type_traits>
#include <vector>

#include <fmt/format.h>

#include "host/Folder.h"
#include "host/TemporaryFile.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

// Counts up whenever the analysis or the layout of these files changes.
constexpr std::string_view kHeader = "zuc song 1\n";
constexpr int kVersion = 2;
constexpr std::uintmax_t kMostBytes = 256u << 20;
constexpr double kMostSeconds = 1e6;
constexpr double kShortestStepSeconds = 0.05;
constexpr std::size_t kMostValues = 1u << 28;  // of one list; more is no song but a broken file

/// Every field of an analysis in a fixed order, for writing and reading alike.
template <class Song, class Visitor>
void VisitFields(Song& song, Visitor&& visit) {
    visit(song.durationSeconds);
    visit(song.analysisRateHz);
    visit(song.beatTimes);
    visit(song.beatPeriodSeconds);
    visit(song.gridStepSeconds);
    visit(song.confidence);
    for (auto* rows : {&song.timbre, &song.chroma}) {
        visit(rows->columns);
        visit(rows->values);
        visit(rows->neighbourWeight);
    }
    visit(song.onsets);
    visit(song.onsetRateHz);
}

struct Writer {
    std::string bytes{kHeader};

    template <class T>
    void operator()(const T& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
    }
    template <class T>
    void operator()(const std::vector<T>& list) {
        (*this)(list.size());
        bytes.append(reinterpret_cast<const char*>(list.data()), list.size() * sizeof(T));
    }
};

struct Reader {
    std::string_view rest;
    bool isGood = true;

    void Take(void* to, std::size_t count) {
        isGood = isGood && count <= rest.size();
        if (!isGood || count == 0) return;
        std::memcpy(to, rest.data(), count);
        rest.remove_prefix(count);
    }
    template <class T>
    void operator()(T& value) {
        Take(&value, sizeof(value));
    }
    template <class T>
    void operator()(std::vector<T>& list) {
        std::size_t size = 0;
        (*this)(size);
        isGood = isGood && size <= kMostValues && size * sizeof(T) <= rest.size();
        if (!isGood) return;
        list.resize(size);
        Take(list.data(), size * sizeof(T));
    }
};

/// Whether every number of an analysis is one.
struct FiniteCheck {
    bool isFinite = true;

    template <class T>
    void operator()(T value) {
        if constexpr (std::is_floating_point_v<T>) isFinite = isFinite && std::isfinite(value);
    }
    template <class T>
    void operator()(const std::vector<T>& list) {
        for (const T value : list) (*this)(value);
    }
};

/// Whether a search can work with the song: an analysis gives nothing else, a damaged file might.
bool IsPlausible(const components::SongAnalysis& song) {
    FiniteCheck check;
    VisitFields(song, check);
    const std::vector<double>& beats = song.beatTimes;
    for (const components::BeatRows* rows : {&song.timbre, &song.chroma})
        if (rows->columns > kMostValues || rows->values.size() != rows->columns * beats.size())
            return false;
    const auto isStep = [](double seconds) {
        return seconds == 0 || (seconds >= kShortestStepSeconds && seconds <= kMostSeconds);
    };
    return check.isFinite && song.durationSeconds >= 0 && song.durationSeconds <= kMostSeconds &&
           std::is_sorted(beats.begin(), beats.end()) &&
           (beats.empty() || (beats.front() >= 0 && beats.back() <= song.durationSeconds)) &&
           isStep(song.beatPeriodSeconds) && isStep(song.gridStepSeconds);
}

}  // namespace

std::string SongCache::GetDefaultFolder() {
    const char* cache = std::getenv("XDG_CACHE_HOME");  // NOLINT(concurrency-mt-unsafe): never set
    if (cache != nullptr && *cache == '/') return std::string(cache) + "/zuc/songs";
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): never set
    return home != nullptr && *home != 0 ? std::string(home) + "/.cache/zuc/songs" : "";
}

std::string SongCache::MakeKey(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return {};
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(1 << 16);
    // FNV-1a (Fowler, Noll, Vo) over words of eight bytes.
    std::uint64_t hash = 14695981039346656037u, bytes = 0;
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        const auto count = static_cast<std::size_t>(file.gcount());
        std::fill(block.begin() + static_cast<std::ptrdiff_t>(count), block.end(), '\0');
        for (std::size_t i = 0; i < count; i += 8) {
            std::uint64_t word = 0;
            std::memcpy(&word, block.data() + i, 8);
            hash = (hash ^ word) * 1099511628211u;
            hash ^= hash >> 32;
        }
        bytes += count;
    }
    return file.bad() || bytes == 0 ? std::string() : fmt::format("{:016x}-{}", hash, bytes);
}

std::string SongCache::GetPath(const std::string& key) const {
    return fmt::format("{}/{}.{}.song", folder_, key, kVersion);
}

std::optional<components::SongAnalysis> SongCache::Find(const std::string& key) const {
    if (folder_.empty() || key.empty()) return {};
    std::ifstream file(GetPath(key), std::ios::binary);
    if (!file) return {};
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    if (!bytes.starts_with(kHeader)) return {};
    Reader reader{std::string_view(bytes).substr(kHeader.size())};
    components::SongAnalysis song;
    VisitFields(song, reader);
    if (!reader.isGood || !reader.rest.empty() || !IsPlausible(song)) return {};
    std::error_code ignored;
    fs::last_write_time(GetPath(key), fs::file_time_type::clock::now(), ignored);
    return song;
}

void SongCache::Store(const std::string& key, const components::SongAnalysis& song) const {
    if (folder_.empty() || key.empty()) return;
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) return;
    Writer writer;
    VisitFields(song, writer);
    try {
        WriteFileAtomically(GetPath(key), writer.bytes);
        RemoveOldest();
    } catch (const std::exception&) {
        return;  // a full disk is no reason to lose the result
    }
}

void SongCache::RemoveOldest() const {
    struct Entry {
        fs::path path;
        fs::file_time_type used;
        std::uintmax_t bytes;
    };
    std::vector<Entry> entries;
    std::uintmax_t total = 0;
    std::error_code ignored;
    for (const std::string& name : ListFolder(folder_, ignored)) {
        if (!name.ends_with(".song")) continue;
        const fs::path path = fs::path(folder_) / name;
        entries.push_back({path, fs::last_write_time(path), fs::file_size(path)});
        total += entries.back().bytes;
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.used < b.used; });
    for (const Entry& entry : entries) {
        if (total <= kMostBytes) return;
        fs::remove(entry.path, ignored);
        total -= entry.bytes;
    }
}

}  // namespace zuc::host
