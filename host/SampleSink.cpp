#include "host/SampleSink.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <exception>

#include "host/AudioReader.h"
#include "host/Error.h"
#include "host/SoundFileMetadata.h"
#include "host/TemporaryFile.h"
#include "host/WavHeader.h"

namespace zuc::host {
namespace {

class WavSink final : public SampleSink {
public:
    WavSink(const Setup& setup, OutputFile& output, const AudioMetadata& metadata)
        : setup_(setup),
          output_(output),
          header_(setup.encoding, setup.rateHz, setup.channels, metadata, !output.IsSeekable()) {
        output_.Append(header_.GetBytes().data(), header_.GetBytes().size());
    }

    void Write(float* interleaved, int frames) override {
        const std::size_t samples = static_cast<std::size_t>(frames * setup_.channels);
        if (setup_.encoding == Encoding::kFloat32)
            return output_.Append(interleaved, samples * sizeof(float));
        Quantise(interleaved, integers_.data(), samples, GetBits(setup_.encoding), setup_.dither);
        Pack(setup_.encoding, integers_.data(), packed_.data(), samples);
        output_.Append(packed_.data(), samples * GetSampleBytes(setup_.encoding));
    }

    void Finish(std::int64_t frames) override {
        const auto headerBytes = static_cast<std::int64_t>(header_.GetBytes().size());
        if ((output_.GetSize() - headerBytes) % 2 != 0) output_.Append("", 1);
        if (!output_.IsSeekable()) return;
        for (const WavHeader::Patch& patch : header_.MakePatches(frames))
            output_.WriteAt(patch.offset, patch.bytes.data(), patch.bytes.size());
    }

private:
    Setup setup_;
    OutputFile& output_;
    WavHeader header_;
    std::array<std::int32_t, kMostSamples> integers_;
    std::array<std::byte, kMostSamples * 4> packed_;
};

/// An OutputFile as libsndfile sees it. What it throws must not pass through C code, so it waits here.
class VirtualFile {
public:
    explicit VirtualFile(OutputFile& output) : output_(output) {}

    SNDFILE* Open(SF_INFO& info) {
        SF_VIRTUAL_IO calls{
            [](void* file) { return Self(file).output_.GetSize(); },
            [](sf_count_t offset, int whence, void* file) {
                return Self(file).Seek(offset, whence);
            },
            [](void*, sf_count_t, void*) { return sf_count_t{0}; },
            [](const void* bytes, sf_count_t count, void* file) {
                return Self(file).Write(bytes, count);
            },
            [](void* file) { return sf_count_t{Self(file).position_}; },
        };
        return sf_open_virtual(&calls, SFM_WRITE, &info, this);
    }

    void Rethrow() const {
        if (error_) std::rethrow_exception(error_);
    }

private:
    static VirtualFile& Self(void* file) { return *static_cast<VirtualFile*>(file); }

    sf_count_t Seek(sf_count_t offset, int whence) {
        if (whence == SEEK_CUR) offset += position_;
        if (whence == SEEK_END) offset += output_.GetSize();
        return position_ = offset;
    }

    sf_count_t Write(const void* bytes, sf_count_t count) {
        if (error_) return 0;
        try {
            if (position_ == output_.GetSize())
                output_.Append(bytes, static_cast<std::size_t>(count));
            else
                output_.WriteAt(position_, bytes, static_cast<std::size_t>(count));
        } catch (...) {
            error_ = std::current_exception();
            return 0;
        }
        position_ += count;
        return count;
    }

    OutputFile& output_;
    std::int64_t position_ = 0;
    std::exception_ptr error_;
};

class SoundFileSink final : public SampleSink {
public:
    SoundFileSink(const Setup& setup,
                  OutputFile& output,
                  const AudioMetadata& metadata,
                  std::vector<std::string>& lost)
        : setup_(setup), virtualFile_(output) {
        SF_INFO info{};
        info.samplerate = setup.rateHz;
        info.channels = setup.channels;
        info.format = setup.row->soundFileFormat | GetSubtype(setup);
        file_.reset(virtualFile_.Open(info));
        virtualFile_.Rethrow();
        if (!file_)
            throw Error(
                ExitCode::kOutput,
                fmt::format("cannot write {} with {} Hz and {} channels: {}", setup.row->name,
                            setup.rateHz, setup.channels, sf_strerror(nullptr)));
        // It would carry the time of day, and the same input should give the same bytes.
        sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
        if (setup.quality >= 0.0)
            sf_command(file_.get(), SFC_SET_VBR_ENCODING_QUALITY, &setup_.quality,
                       sizeof setup_.quality);
        lost = WriteMetadata(file_.get(), *setup.row, setup.channels, metadata);
    }

    void Write(float* interleaved, int frames) override {
        sf_count_t written = 0;
        if (setup_.row->lossySubtype != 0 || setup_.encoding == Encoding::kFloat32) {
            written = sf_writef_float(file_.get(), interleaved, frames);
        } else {
            const std::size_t samples = static_cast<std::size_t>(frames * setup_.channels);
            const int bits = GetBits(setup_.encoding);
            Quantise(interleaved, integers_.data(), samples, bits, setup_.dither);
            // The library takes integers of every depth from the upper bits.
            for (std::size_t i = 0; i < samples; ++i)
                integers_[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(integers_[i])
                                                         << (32 - bits));
            written = sf_writef_int(file_.get(), integers_.data(), frames);
        }
        virtualFile_.Rethrow();
        if (written != frames)
            throw Error(ExitCode::kOutput, fmt::format("cannot encode {}: {}", setup_.row->name,
                                                       sf_strerror(file_.get())));
    }

    void Finish(std::int64_t) override {
        const int error = sf_close(file_.release());
        virtualFile_.Rethrow();
        if (error != SF_ERR_NO_ERROR)
            throw Error(ExitCode::kOutput, fmt::format("cannot complete {}: {}", setup_.row->name,
                                                       sf_error_number(error)));
    }

private:
    static int GetSubtype(const Setup& setup) {
        if (setup.row->lossySubtype != 0) return setup.row->lossySubtype;
        if (setup.encoding == Encoding::kFloat32) return SF_FORMAT_FLOAT;
        return GetIntegerSubtype(*setup.row, GetBits(setup.encoding));
    }

    Setup setup_;
    VirtualFile virtualFile_;
    SoundFilePtr file_;
    std::array<std::int32_t, kMostSamples> integers_;
};

}  // namespace

int GetBits(Encoding encoding) { return 8 * static_cast<int>(GetSampleBytes(encoding)); }

std::unique_ptr<SampleSink> SampleSink::Make(const Setup& setup,
                                             OutputFile& output,
                                             const AudioMetadata& metadata,
                                             std::vector<std::string>& lost) {
    if (setup.row->soundFileFormat != 0)
        return std::make_unique<SoundFileSink>(setup, output, metadata, lost);
    lost = WriteMetadata(nullptr, *setup.row, setup.channels, metadata);
    return std::make_unique<WavSink>(setup, output, metadata);
}

}  // namespace zuc::host
