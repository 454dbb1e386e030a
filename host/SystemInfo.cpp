#include "host/SystemInfo.h"

#include <string_view>

#include <sndfile.h>
#include <soxr.h>

#include <fmt/core.h>
#include <boost/version.hpp>
#include <nlohmann/json.hpp>

namespace zuc::host {
namespace {

/// "FLAC" of "FLAC (Free Lossless Audio Codec)".
std::string GetShortName(std::string_view name) {
    return std::string(name.substr(0, name.find(" (")));
}

}  // namespace

std::vector<LibraryVersion> GetLibraryVersions() {
    return {
        {"libsndfile", sf_version_string()},
        {"libsoxr", soxr_version()},
        {"Boost", fmt::format("{}.{}.{}", BOOST_VERSION / 100000, BOOST_VERSION / 100 % 1000,
                              BOOST_VERSION % 100)},
        {"fmt",
         fmt::format("{}.{}.{}", FMT_VERSION / 10000, FMT_VERSION / 100 % 100, FMT_VERSION % 100)},
        {"nlohmann_json", fmt::format("{}.{}.{}", NLOHMANN_JSON_VERSION_MAJOR,
                                      NLOHMANN_JSON_VERSION_MINOR, NLOHMANN_JSON_VERSION_PATCH)},
    };
}

std::string GetCompiler() {
#if defined(__clang__)
    return "clang++ " __clang_version__;
#else
    return "g++ " __VERSION__;
#endif
}

std::vector<std::string> GetProcessorFeatures() {
    std::vector<std::string> features;
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("ssse3")) features.emplace_back("ssse3");
    if (__builtin_cpu_supports("sse4.1")) features.emplace_back("sse4.1");
    if (__builtin_cpu_supports("avx2")) features.emplace_back("avx2");
    if (__builtin_cpu_supports("fma")) features.emplace_back("fma");
    if (__builtin_cpu_supports("avx512f")) features.emplace_back("avx512f");
#elif defined(__aarch64__)
    features.emplace_back("neon");
#endif
    return features;
}

std::vector<std::string> GetReadableFormats() {
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        if (sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof info) == 0)
            names.push_back(GetShortName(info.name));
    }
    return names;
}

}  // namespace zuc::host
