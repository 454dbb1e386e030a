#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "host/AudioReader.h"
#include "host/AudioWriter.h"

namespace zuc::host {

using Channels = std::vector<std::vector<float>>;

/// A folder that goes with the test.
class TestFolder {
public:
    TestFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "zuc-test-XXXXXX").native();
        path_ = mkdtemp(name.data());
    }
    ~TestFolder() { std::filesystem::remove_all(path_); }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).native(); }
    std::vector<std::string> List() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename().native());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path path_;
};

inline std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::vector<const float*> Pointers(const Channels& samples, std::size_t first = 0) {
    std::vector<const float*> at;
    at.reserve(samples.size());
    for (const auto& channel : samples) at.push_back(channel.data() + first);
    return at;
}

inline std::vector<float*> Pointers(Channels& samples, std::size_t first = 0) {
    std::vector<float*> at;
    at.reserve(samples.size());
    for (auto& channel : samples) at.push_back(channel.data() + first);
    return at;
}

/// White noise to full scale whose samples are multiples of 2^-(bits-1), with both ends of the range.
inline Channels MakeNoise(int channels, int frames, int bits, unsigned seed = 1) {
    std::mt19937 random(seed);
    const int top = 1 << (bits - 1);
    std::uniform_int_distribution<int> pick(-top, top - 1);
    Channels samples(static_cast<std::size_t>(channels));
    for (auto& channel : samples) {
        for (int i = 0; i < frames; ++i)
            channel.push_back(static_cast<float>(pick(random)) / static_cast<float>(top));
        if (frames > 1) channel[0] = -1.0f;
        if (frames > 1) channel[1] = static_cast<float>(top - 1) / static_cast<float>(top);
    }
    return samples;
}

inline std::vector<float> MakeSine(double hz, double rateHz, int frames, double amplitude = 0.5) {
    std::vector<float> sine;
    sine.reserve(static_cast<std::size_t>(frames));
    for (int i = 0; i < frames; ++i)
        sine.push_back(static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * i / rateHz)));
    return sine;
}

inline AudioWriterOptions MakeOptions(const std::string& path, int channels, SampleFormat format) {
    AudioWriterOptions options;
    options.path = path;
    options.samples = format;
    options.rateHz = 48000;
    options.channels = channels;
    return options;
}

inline void WriteFrames(AudioWriter& writer, const Channels& samples, std::size_t blockFrames) {
    const std::size_t frames = samples.front().size();
    for (std::size_t first = 0; first < frames; first += blockFrames)
        writer.Write(Pointers(samples, first).data(),
                     static_cast<int>(std::min(blockFrames, frames - first)));
}

/// What could not be kept.
inline std::vector<std::string> WriteAudio(const AudioWriterOptions& options,
                                           const Channels& samples,
                                           const AudioMetadata& metadata = {},
                                           std::size_t blockFrames = 1000) {
    AudioWriter writer(options, metadata);
    WriteFrames(writer, samples, blockFrames);
    writer.Commit();
    return writer.GetLostMetadata();
}

inline Channels ReadAll(AudioReader& reader, int blockFrames = 777) {
    Channels block(static_cast<std::size_t>(reader.GetInfo().channels),
                   std::vector<float>(static_cast<std::size_t>(blockFrames)));
    Channels samples(block.size());
    while (const int count = reader.Read(Pointers(block).data(), blockFrames))
        for (std::size_t c = 0; c < block.size(); ++c)
            samples[c].insert(samples[c].end(), block[c].begin(), block[c].begin() + count);
    return samples;
}

inline Channels ReadAudio(const std::string& path) { return ReadAll(*AudioReader::Open(path)); }

}  // namespace zuc::host
