#pragma once

#include <cmath>
#include <cstddef>
#include <string>

#include "host/AudioFileTools.h"

namespace zuc::host {

inline constexpr int kSongRateHz = 22050;

/// Music for tests: 120 beats a minute, eight beats that sound apart and come again and again.
inline Channels MakeSong(double seconds, float gain = 0.5f) {
    Channels song(2);
    const auto frames = static_cast<std::size_t>(seconds * kSongRateHz);
    for (std::size_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / kSongRateHz;
        const double since = std::fmod(t, 0.5);
        const double hz = 300 + 120 * (static_cast<int>(t / 0.5) % 8);
        const auto x = static_cast<float>(std::exp(-12 * since) * std::sin(6.2831853 * hz * since));
        song[0].push_back(gain * x);
        song[1].push_back(0.5f * gain * x);
    }
    return song;
}

inline void WriteSong(const std::string& path, double seconds, float gain = 0.5f) {
    const Channels song = MakeSong(seconds, gain);
    AudioWriterOptions options;
    options.path = path;
    options.samples = SampleFormat::kInt24;
    options.rateHz = kSongRateHz;
    options.channels = 2;
    AudioMetadata metadata;
    metadata.cues = {{static_cast<std::int64_t>(kSongRateHz), "one second"}};
    AudioWriter writer(options, metadata);
    writer.Write(Pointers(song).data(), static_cast<int>(song[0].size()));
    writer.Commit();
}

}  // namespace zuc::host
