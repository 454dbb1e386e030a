#include "host/UserPresets.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "host/Error.h"
#include "host/Folder.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kExtension = ".json";
constexpr std::size_t kMaximumNameBytes = 80;  // encoded it still fits every file system
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

bool IsSafe(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte != 0x7f &&
           std::string_view("/\\%:*?\"<>|").find(c) == std::string_view::npos;
}

std::string EncodeFileName(std::string_view name) {
    std::string encoded;
    for (const char c : name) {
        const bool hides = encoded.empty() && c == '.';
        if (IsSafe(c) && !hides) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
    }
    return encoded;
}

std::string DecodeFileName(std::string_view encoded) {
    std::string name;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        const bool isEscape = encoded[i] == '%' && i + 2 < encoded.size();
        const std::size_t high =
            isEscape ? kHexDigits.find(encoded[i + 1]) : std::string_view::npos;
        const std::size_t low = isEscape ? kHexDigits.find(encoded[i + 2]) : std::string_view::npos;
        if (high == std::string_view::npos || low == std::string_view::npos) {
            name += encoded[i];
            continue;
        }
        name += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return name;
}

}  // namespace

std::string UserPresets::GetPath(const std::string& slug, std::string_view name) const {
    std::string file = EncodeFileName(name);
    file += kExtension;
    return (fs::path(folder_) / slug / file).string();
}

std::string UserPresets::GetDefaultFolder() {
    const char* configuration = std::getenv("XDG_CONFIG_HOME");  // NOLINT(concurrency-mt-unsafe)
    if (configuration && *configuration == '/') return std::string(configuration) + "/zuc/presets";
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
    return std::string(home ? home : "") + "/.config/zuc/presets";
}

std::vector<std::string> UserPresets::GetNames(const std::string& slug) const {
    std::vector<std::string> names;
    std::error_code ignored;  // a folder that is not there has no presets
    for (const std::string& file : ListFolder(folder_ + "/" + slug, ignored))
        if (const fs::path name(file); name.extension() == kExtension)
            names.push_back(DecodeFileName(name.stem().string()));
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<ChainStep> UserPresets::Load(const std::string& slug, std::string_view name) const {
    for (const std::string& saved : GetNames(slug)) {
        if (!EqualsIgnoringCase(saved, Trim(name))) continue;
        const std::string path = GetPath(slug, saved);
        const Chain chain = ReadChainFile(path);
        if (chain.size() != 1 || chain.front().effect != slug)
            throw Error(ExitCode::kInput, path + ": is no preset of " + slug,
                        "one effect: " + slug);
        return chain.front();
    }
    return std::nullopt;
}

std::string UserPresets::Save(const std::string& slug,
                              std::string_view name,
                              const ChainStep& step) const {
    name = Trim(name);
    if (name.empty() || name.size() > kMaximumNameBytes)
        throw Error(ExitCode::kUsage, "a preset cannot be named '" + std::string(name) + "'",
                    "1 to " + std::to_string(kMaximumNameBytes) + " bytes");
    const fs::path folder = fs::path(folder_) / slug;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Error(ExitCode::kOutput, folder.string() + ": cannot be made: " + error.message());
    std::string path = GetPath(slug, name);
    WriteChainFile(path, {step});
    return path;
}

}  // namespace zuc::host
