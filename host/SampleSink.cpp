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
        : SampleSink(setup),
          output_(output),
          header_(setup.encoding, setup.rateHz, setup.channels, metadata, !output.IsSeekable()) {
        output_.Append(header_.GetBytes().data(), header_.GetBytes().size());
        output_.Flush();  // so that the samples are aligned in the buffer
    }

    void Write(const float* const* in, int first, int frames) override {
        const std::size_t samples = CountSamples(frames);
        std::byte* const place = output_.AppendInPlace(samples * GetSampleBytes(setup_.encoding));
        if (setup_.encoding == Encoding::kFloat32) {
            auto* const floats = reinterpret_cast<float*>(place);
            return Interleave(in, first, floats, setup_.channels, frames, setup_.order);
        }
        MakeIntegers(in, first, frames);
        Pack(setup_.encoding, integers_.data(), place, samples);
    }

    void Finish(std::int64_t frames) override {
        const auto headerBytes = static_cast<std::int64_t>(header_.GetBytes().size());
        if ((output_.GetSize() - headerBytes) % 2 != 0) output_.Append("", 1);
        if (!output_.IsSeekable()) return;
        for (const WavHeader::Patch& patch : header_.MakePatches(frames))
            output_.WriteAt(patch.offset, patch.bytes.data(), patch.bytes.size());
    }

private:
    OutputFile& output_;
    WavHeader header_;
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
        : SampleSink(setup), virtualFile_(output) {
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

    void Write(const float* const* in, int first, int frames) override {
        sf_count_t written = 0;
        if (setup_.row->lossySubtype != 0 || setup_.encoding == Encoding::kFloat32) {
            MakeFloats(in, first, frames);
            written = sf_writef_float(file_.get(), interleaved_.data(), frames);
        } else {
            MakeIntegers(in, first, frames);
            // The library takes integers of every depth from the upper bits.
            for (std::int32_t& value : integers_)
                value = static_cast<std::int32_t>(static_cast<std::uint32_t>(value)
                                                  << (32 - GetBits(setup_.encoding)));
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

    VirtualFile virtualFile_;
    SoundFilePtr file_;
};

}  // namespace

int GetBits(Encoding encoding) { return 8 * static_cast<int>(GetSampleBytes(encoding)); }

void SampleSink::MakeFloats(const float* const* in, int first, int frames) {
    Interleave(in, first, interleaved_.data(), setup_.channels, frames, setup_.order);
}

void SampleSink::MakeIntegers(const float* const* in, int first, int frames) {
    MakeFloats(in, first, frames);
    const std::size_t samples = CountSamples(frames);
    if (setup_.dither != nullptr) setup_.dither->Fill(noise_.data(), samples);
    Quantise(interleaved_.data(), setup_.dither != nullptr ? noise_.data() : nullptr,
             integers_.data(), samples, GetBits(setup_.encoding));
}

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
