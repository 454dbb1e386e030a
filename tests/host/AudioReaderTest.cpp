#include "host/AudioReader.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <string>

#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

TEST(AudioReader, ReadsWhatOtherProgramsWrite) {
    const TestFolder folder;
    const struct {
        int format;
        const char* name;
        int bits;
        float tolerance;  // a step, or what the curve loses
    } rows[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG, "wav", 16, 3.1e-5f},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT | SF_ENDIAN_BIG, "wav", 32, 0},
        {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, "wav", 64, 0},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "wav", 8, 8e-3f},
        {SF_FORMAT_WAV | SF_FORMAT_ULAW, "wav", 0, 3e-2f},
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, "wav", 24, 1e-7f},
        {SF_FORMAT_RF64 | SF_FORMAT_PCM_32, "rf64", 32, 1e-7f},
        {SF_FORMAT_W64 | SF_FORMAT_FLOAT, "w64", 32, 0},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE, "aiff", 24, 1e-7f},
        {SF_FORMAT_CAF | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, "caf", 32, 0},
        {SF_FORMAT_AU | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, "au", 16, 3.1e-5f},
        {SF_FORMAT_AVR | SF_FORMAT_PCM_16, "avr", 16, 3.1e-5f},
    };
    const std::vector<float> samples = MakeNoise(1, 2000, 24).front();
    for (const auto& row : rows) {
        SCOPED_TRACE(fmt::format("{:#x}", row.format));
        SF_INFO info{0, 48000, 2, row.format, 0, 0};
        const std::string path = folder / "a";
        SoundFilePtr file(sf_open(path.c_str(), SFM_WRITE, &info));
        ASSERT_TRUE(file);
        sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
        ASSERT_EQ(sf_writef_float(file.get(), samples.data(), 1000), 1000);
        file.reset();
        const auto reader = AudioReader::Open(path);
        EXPECT_EQ(reader->GetInfo().bits, row.bits);
        EXPECT_EQ(reader->GetInfo().format, row.name);
        const Channels read = ReadAll(*reader);
        EXPECT_FALSE(reader->IsTruncated());
        ASSERT_EQ(read[1].size(), 1000u);
        for (std::size_t i = 0; i < 2000; ++i)
            ASSERT_NEAR(read[i % 2][i / 2], samples[i], row.tolerance) << i;
    }
}

TEST(AudioReader, TellsAStreamFromATruncatedFile) {
    const TestFolder folder;
    const std::string path = folder / "a.wav";
    WriteAudio(MakeOptions(path, 1, SampleFormat::kInt16), MakeNoise(1, 100, 16));
    const std::string whole = ReadBytes(path);
    const std::size_t dataAt = whole.find("data");
    ASSERT_NE(dataAt, std::string::npos);
    const auto withSize = [&](const std::string& size) {
        return std::string(whole).replace(dataAt + 4, 4, size);
    };
    const struct {
        const char* name;
        std::string bytes;
        bool isTruncated;
    } rows[] = {
        {"whole", whole, false},
        {"a chunk of odd length before", std::string(whole).insert(dataAt, "junk\1\0\0\0x\0", 10),
         false},
        {"a stream's size", withSize("\xFF\xFF\xFF\xFF"), false},
        {"a size of a frame more", withSize(std::string("\xCA\0\0\0", 4)), true},
        {"a byte short", whole.substr(0, whole.size() - 1), true},
    };
    for (const auto& row : rows) {
        WriteBytes(path, row.bytes);
        const auto reader = AudioReader::Open(path);
        EXPECT_EQ(ReadAll(*reader)[0].size(), row.bytes.size() < whole.size() ? 99u : 100u)
            << row.name;
        EXPECT_EQ(reader->IsTruncated(), row.isTruncated) << row.name;
    }
}

}  // namespace
}  // namespace zuc::host
