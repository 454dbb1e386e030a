#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sndfile.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <numeric>

#include "host/Error.h"
#include "host/FileFormats.h"
#include "host/WavHeader.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

bool AreSameBits(const Channels& a, const Channels& b) {
    const auto same = [](const std::vector<float>& x, const std::vector<float>& y) {
        return x.size() == y.size() && std::memcmp(x.data(), y.data(), 4 * x.size()) == 0;
    };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same);
}

/// The error of `action`, or an empty one.
template <typename Action>
Error Catch(const Action& action) {
    try {
        action();
    } catch (const Error& error) {
        return error;
    }
    return {ExitCode::kDone, {}};
}

struct Depth {
    SampleFormat format;
    int bits;
    bool FormatRow::*isAllowed;
};
constexpr std::array kDepths{
    Depth{SampleFormat::kInt8, 8, &FormatRow::has8},
    Depth{SampleFormat::kInt16, 16, &FormatRow::has16},
    Depth{SampleFormat::kInt24, 24, &FormatRow::has24},
    Depth{SampleFormat::kInt32, 32, &FormatRow::has32},
    Depth{SampleFormat::kFloat32, 32, &FormatRow::hasFloat},
};

TEST(AudioFile, KeepsEverySampleOfEveryLosslessFormat) {
    const TestFolder folder;
    for (const FormatRow& row : GetFormatTable()) {
        if (row.lossySubtype != 0) continue;
        for (const Depth& depth : kDepths) {
            for (const int channels : {1, 2, 6, row.maxChannels}) {
                SCOPED_TRACE(
                    fmt::format("{} {} bits, {} channels", row.name, depth.bits, channels));
                const bool isFloat = depth.format == SampleFormat::kFloat32;
                AudioWriterOptions options =
                    MakeOptions(folder / fmt::format("a.{}", row.name), channels, depth.format);
                options.exact = true;
                if (!(row.*depth.isAllowed)) {
                    const Error error = Catch([&] { AudioWriter(options, {}); });
                    EXPECT_EQ(error.GetCode(), ExitCode::kUsage);
                    EXPECT_THAT(error.GetAllowed(), HasSubstr("16, 24"));
                    continue;
                }
                // An odd number of frames, so that a pad byte is due.
                Channels samples = MakeNoise(channels, 9999, std::min(depth.bits, 24));
                if (isFloat) {
                    const std::array<float, 5> special{1e-40f, -3.5f, INFINITY, -INFINITY, NAN};
                    std::copy(special.begin(), special.end(), samples[0].begin());
                }
                WriteAudio(options, samples);
                const auto reader = AudioReader::Open(options.path);
                EXPECT_EQ(reader->GetInfo().format, row.name);
                EXPECT_EQ(reader->GetInfo().bits, depth.bits);
                EXPECT_EQ(reader->GetInfo().isFloat, isFloat);
                EXPECT_EQ(reader->GetInfo().frames, 9999);
                EXPECT_TRUE(AreSameBits(ReadAll(*reader), samples));
                EXPECT_FALSE(reader->IsTruncated());

                reader->Seek(4321);
                const Channels rest = ReadAll(*reader);
                ASSERT_EQ(rest[0].size(), 9999u - 4321u);
                EXPECT_EQ(rest.back()[0], samples.back()[4321]);
            }
        }
    }
}

TEST(AudioFile, LossyFormatsKeepLengthLevelAndSpeakers) {
    const TestFolder folder;
    // Where libsndfile finds each of our channels: Ogg files hold left, centre, right.
    const std::array<int, 6> oggPlaces{0, 2, 1, 5, 3, 4};
    for (const FormatRow& row : GetFormatTable()) {
        if (row.lossySubtype == 0) continue;
        SCOPED_TRACE(row.name);
        const int channels = std::min(row.maxChannels, 6);
        Channels samples;
        for (int c = 0; c < channels; ++c)
            samples.push_back(MakeSine(300, 48000, 48000, 0.1 * (c + 1)));
        const std::string path = folder / fmt::format("a.{}", row.name);
        WriteAudio(MakeOptions(path, channels, SampleFormat::kLikeSource), samples, {}, 48000);

        const Channels read = ReadAudio(path);
        SF_INFO info{};
        const SoundFilePtr file(sf_open(path.c_str(), SFM_READ, &info));
        std::vector<float> direct(static_cast<std::size_t>(info.frames * info.channels));
        sf_readf_float(file.get(), direct.data(), info.frames);
        for (int c = 0; c < channels; ++c) {
            const auto& channel = read[static_cast<std::size_t>(c)];
            ASSERT_EQ(channel.size(), 48000u);
            if (c == 3) continue;  // encoders cut the low frequency channel off in their own way
            const float peak = *std::max_element(channel.begin() + 4000, channel.end() - 4000);
            EXPECT_NEAR(peak, 0.1 * (c + 1), 0.02) << c;
            float directPeak = 0.0f;
            const auto place = static_cast<std::size_t>(
                channels == 6 ? oggPlaces[static_cast<std::size_t>(c)] : c);
            for (std::size_t i = 4000; i < 44000; ++i)
                directPeak =
                    std::max(directPeak, direct[i * static_cast<std::size_t>(channels) + place]);
            EXPECT_NEAR(directPeak, 0.1 * (c + 1), 0.02) << c;
        }
    }
}

AudioMetadata MakeMetadata() {
    AudioMetadata metadata;
    for (std::size_t i = 0; i < kTagCount; ++i)
        metadata.tags[i] = fmt::format("{} text", GetTagName(static_cast<Tag>(i)));
    metadata[Tag::kTitle] = "Größe";
    metadata[Tag::kDate] = "2024";
    metadata[Tag::kTrack] = "7";
    metadata.broadcast = BroadcastExtension{"description",
                                            "originator",
                                            "reference",
                                            "2024-01-31",
                                            "12:30:00",
                                            5'000'000'000,
                                            2,
                                            "umid",
                                            {-2300, 500, -100, -1800, -2000},
                                            "A=PCM\r\n"};
    metadata.cues = {{100, "verse"}, {200, ""}, {300, "end"}};
    metadata.instrument = Instrument{61, -20, {{Instrument::LoopMode::kAlternating, 10, 500, 3}}};
    metadata.channelMask = 0x60F;  // 5.1 with side speakers, which only WAV can tell from rear ones
    metadata.chunks = {{"cart", std::string(2048, 'c')}, {"iXML", "<BWFXML/>"}};
    return metadata;
}

TEST(AudioFile, CarriesWhatTheContainerCanAndNamesTheRest) {
    const TestFolder folder;
    const AudioMetadata metadata = MakeMetadata();
    const std::vector<std::string> inWavOnly{"speaker positions", "broadcast extension",
                                             "cue points (3)",    "instrument",
                                             "'cart' chunk",      "'iXML' chunk"};
    for (const FormatRow& row : GetFormatTable()) {
        SCOPED_TRACE(row.name);
        const int channels = std::min(row.maxChannels, 6);
        const std::string path = folder / fmt::format("a.{}", row.name);
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < kTagCount; ++i)
            if (!CarriesTag(row, static_cast<Tag>(i)))
                expected.emplace_back(GetTagName(static_cast<Tag>(i)));
        if (row.name != "wav") expected.insert(expected.end(), inWavOnly.begin(), inWavOnly.end());
        const auto options = MakeOptions(path, channels, SampleFormat::kLikeSource);
        EXPECT_THAT(WriteAudio(options, MakeNoise(channels, 5000, 16), metadata),
                    testing::UnorderedElementsAreArray(expected));

        const AudioMetadata read = AudioReader::Open(path)->GetMetadata();
        for (std::size_t i = 0; i < kTagCount; ++i)
            if (CarriesTag(row, static_cast<Tag>(i))) {
                EXPECT_THAT(read.tags[i], testing::StartsWith(metadata.tags[i]));
            }
        if (row.name != "wav") continue;
        EXPECT_EQ(read.channelMask, metadata.channelMask);
        ASSERT_EQ(read.cues.size(), 3u);
        EXPECT_EQ(read.cues[2].frame, 300);
        EXPECT_EQ(read.cues[0].name, "verse");
        EXPECT_EQ(read.cues[2].name, "end");
        ASSERT_TRUE(read.broadcast && read.instrument);
        EXPECT_EQ(read.broadcast->description, "description");
        EXPECT_EQ(read.broadcast->originationTime, "12:30:00");
        EXPECT_EQ(read.broadcast->timeReferenceFrames, 5'000'000'000u);
        EXPECT_EQ(read.broadcast->loudness, metadata.broadcast->loudness);
        EXPECT_EQ(read.broadcast->umid, "umid");
        EXPECT_EQ(read.broadcast->codingHistory, "A=PCM\r\n");
        EXPECT_EQ(100 * read.instrument->baseNote + read.instrument->detuneCents, 6080);
        ASSERT_EQ(read.instrument->loops.size(), 1u);
        EXPECT_EQ(read.instrument->loops[0].mode, Instrument::LoopMode::kAlternating);
        EXPECT_EQ(read.instrument->loops[0].startFrame, 10);
        EXPECT_EQ(read.instrument->loops[0].endFrame, 500);
        EXPECT_EQ(read.instrument->loops[0].count, 3u);
        ASSERT_EQ(read.chunks.size(), 2u);
        EXPECT_EQ(read.chunks[1].bytes.substr(0, 9), "<BWFXML/>");
    }
}

TEST(AudioFile, NamesTextsThatTheAlphabetOfTheFormatLacks) {
    const TestFolder folder;
    AudioMetadata metadata;
    metadata[Tag::kTitle] = "\u65E5\u672C";
    metadata[Tag::kArtist] = "B\u00E9la";
    const auto options = MakeOptions(folder / "a.mp3", 1, SampleFormat::kLikeSource);
    EXPECT_THAT(WriteAudio(options, MakeNoise(1, 5000, 16), metadata), ElementsAre("title"));
    EXPECT_EQ(AudioReader::Open(options.path)->GetMetadata()[Tag::kArtist], "B\u00E9la");
}

TEST(AudioFile, MovesPositionsWithTheRate) {
    AudioMetadata metadata = MakeMetadata();
    metadata.ChangeRate(48000, 96000);
    EXPECT_EQ(metadata.broadcast->timeReferenceFrames, 10'000'000'000u);
    EXPECT_EQ(metadata.cues[0].frame, 200);
    EXPECT_EQ(metadata.instrument->loops[0].endFrame, 1000);
}

TEST(AudioFile, ReadsWhatIsLeftOfATruncatedFile) {
    const TestFolder folder;
    for (const std::string format : {"wav", "aiff", "flac"}) {
        SCOPED_TRACE(format);
        const std::string path = folder / ("a." + format);
        const Channels samples = MakeNoise(2, 100000, 16);
        AudioWriterOptions options = MakeOptions(path, 2, SampleFormat::kInt16);
        options.exact = true;
        WriteAudio(options, samples);
        std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);

        const auto reader = AudioReader::Open(path);
        Channels read = ReadAll(*reader);
        EXPECT_TRUE(reader->IsTruncated());
        ASSERT_GT(read[0].size(), 40000u);
        ASSERT_LT(read[0].size(), 60000u);
        read[0].resize(40000);
        EXPECT_TRUE(std::equal(read[0].begin(), read[0].end(), samples[0].begin()));
    }
}

TEST(AudioFile, SaysWhatIsWrongWithAnInput) {
    const TestFolder folder;
    WriteBytes(folder / "empty.wav", "");
    WriteBytes(folder / "letter.txt", std::string(5000, 'x'));
    WriteAudio(MakeOptions(folder / "song.wav", 1, SampleFormat::kInt16), MakeNoise(1, 100, 16));
    std::string fast = ReadBytes(folder / "song.wav");
    fast.replace(fast.find("fmt ") + 12, 4, std::string("\x01\xB8\x0B\0", 4));  // the rate: 768001
    WriteBytes(folder / "fast.wav", fast);
    std::filesystem::create_symlink("loop.wav", folder / "loop.wav");
    SF_INFO info{0, 48000, 33, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 0};
    const std::vector<short> frame(33);
    const SoundFilePtr file(sf_open((folder / "33.wav").c_str(), SFM_WRITE, &info));
    sf_writef_short(file.get(), frame.data(), 1);
    sf_write_sync(file.get());

    struct Case {
        std::string name, message, hint;
    };
    for (const Case& c :
         {Case{"sogn.wav", "there is no file", "song.wav"},
          Case{"no/song.wav", "there is no file", "there is no folder"},
          Case{"", "is a folder", ""}, Case{"empty.wav", "is empty", ""},
          Case{"letter.txt", "is not an audio file", ""}, Case{"33.wav", "has 33 channels", ""},
          Case{"fast.wav", "its rate is 768001 Hz", ""}}) {
        SCOPED_TRACE(c.name);
        const Error error = Catch([&] { AudioReader::Open(folder / c.name); });
        EXPECT_EQ(error.GetCode(), ExitCode::kInput);
        EXPECT_THAT(error.GetMessage(), HasSubstr(c.message));
        EXPECT_FALSE(error.GetAllowed().empty());
        EXPECT_THAT(error.GetHint(), HasSubstr(c.hint));
    }
    EXPECT_THAT(Catch([] { AudioReader::Open("/dev/ptmx"); }).GetMessage(),
                HasSubstr("is a terminal"));
    EXPECT_THAT(Catch([&] { AudioReader::Open(folder / "loop.wav"); }).GetMessage(),
                HasSubstr("Too many levels of symbolic links"));
    const auto reader = AudioReader::Open(folder / "song.wav");
    EXPECT_THAT(Catch([&] { reader->Seek(101); }).GetMessage(),
                HasSubstr("cannot go to frame 101"));
}

TEST(AudioFile, SaysWhatIsWrongWithAnOutput) {
    const TestFolder folder;
    struct Case {
        std::string name, format;
        int channels, rateHz;
        ExitCode code;
        std::string allowed;
    };
    for (const Case& c : {Case{"a.flac", "", 9, 48000, ExitCode::kOutput, "1 to 8 channels"},
                          Case{"a.wav", "", 33, 48000, ExitCode::kOutput, "1 to 32 channels"},
                          Case{"a.opus", "", 2, 44100, ExitCode::kOutput, "24000, 48000"},
                          Case{"a.mp3", "", 3, 44100, ExitCode::kOutput, "1 to 2 channels"},
                          Case{"a.wav", "raw", 2, 48000, ExitCode::kUsage, "wav, flac"},
                          Case{"a.caf", "alac", 2, 48000, ExitCode::kUsage, "wav, flac"},
                          Case{"a", "", 2, 48000, ExitCode::kUsage, "wav, flac"}}) {
        SCOPED_TRACE(c.name + " " + c.format);
        AudioWriterOptions options =
            MakeOptions(folder / c.name, c.channels, SampleFormat::kLikeSource);
        options.format = c.format;
        options.rateHz = c.rateHz;
        const Error error = Catch([&] { AudioWriter(options, {}); });
        EXPECT_EQ(error.GetCode(), c.code);
        EXPECT_THAT(error.GetAllowed(), HasSubstr(c.allowed));
    }
    EXPECT_THAT(Catch([&] {
                    AudioWriter(MakeOptions(folder / "a.ogg", 2, SampleFormat::kInt16), {});
                }).GetMessage(),
                HasSubstr("lossy"));
    EXPECT_THAT(folder.List(), ElementsAre());
    EXPECT_THAT(Catch([] { ParseSampleFormat("20"); }).GetAllowed(),
                HasSubstr("8, 16, 24, 32, float"));
    EXPECT_EQ(ParseSampleFormat("32f"), SampleFormat::kFloat32);
}

TEST(AudioFile, ChoosesTheDepthOfTheSource) {
    const TestFolder folder;
    struct Case {
        int bits;
        bool isFloat;
        std::string name, encoding;
    };
    for (const Case& c :
         {Case{16, false, "a.wav", "16-bit PCM"}, Case{32, true, "a.wav", "32-bit float"},
          Case{0, false, "a.wav", "24-bit PCM"}, Case{64, true, "a.aiff", "32-bit float"},
          Case{32, true, "a.flac", "24-bit PCM"}, Case{32, false, "a.flac", "24-bit PCM"},
          Case{16, false, "a.ogg", "Vorbis"}}) {
        AudioWriterOptions options = MakeOptions(folder / c.name, 1, SampleFormat::kLikeSource);
        options.sourceBits = c.bits;
        options.sourceIsFloat = c.isFloat;
        EXPECT_EQ(AudioWriter(options, {}).GetInfo().encoding, c.encoding) << c.bits << c.name;
    }
}

TEST(AudioFile, ExceedsFourGigabytesAsRf64) {
    const TestFolder folder;
    const std::string path = folder / "long.wav";
    const std::int64_t frames = (std::int64_t{1} << 30) + 12345;
    const WavHeader header(Encoding::kInt16, 48000, 2, MakeMetadata(), false);
    std::string bytes = header.GetBytes();
    const auto size = static_cast<std::int64_t>(bytes.size()) + 4 * frames;
    for (const WavHeader::Patch& patch : header.MakePatches(frames))
        bytes.replace(static_cast<std::size_t>(patch.offset), patch.bytes.size(), patch.bytes);
    WriteBytes(path, bytes);
    ASSERT_EQ(truncate(path.c_str(), size), 0);  // the rest is a hole, which takes no space

    const auto reader = AudioReader::Open(path);
    EXPECT_EQ(reader->GetInfo().format, "rf64");
    EXPECT_EQ(reader->GetInfo().frames, frames);
    reader->Seek(frames - 5);
    EXPECT_EQ(ReadAll(*reader)[0].size(), 5u);
    EXPECT_FALSE(reader->IsTruncated());
}

}  // namespace
}  // namespace zuc::host
