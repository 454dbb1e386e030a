#include "kraaudiodsp/PartitionedFir.h"

#include <algorithm>

#include "kraaudiodsp/vector/SpectrumOps.h"

namespace dsp {

void FirSpectra::Prepare(std::size_t partFrames, std::size_t partCount) {
    partFrames_ = partFrames;
    partCount_ = partCount;
    binCount_ = partFrames + 1;
    fft_.Prepare(2 * partFrames);
    spectra_.assign(partCount * binCount_, {});
    padded_.assign(2 * partFrames, 0.0f);
}

void FirSpectra::SetPart(std::size_t part, const float* taps) {
    std::copy_n(taps, partFrames_, padded_.begin());
    fft_.Forward(padded_.data(), spectra_.data() + part * binCount_);
}

void PartitionedFir::Prepare(std::size_t partFrames, std::size_t partCount) {
    partFrames_ = partFrames;
    partCount_ = partCount;
    binCount_ = partFrames + 1;
    fft_.Prepare(2 * partFrames);
    input_.assign(2 * partFrames, 0.0f);
    inputs_.assign(partCount * binCount_, {});
    sum_.assign(binCount_, {});
    result_.assign(2 * partFrames, 0.0f);
    for (auto& output : outputs_) output.assign(partFrames, 0.0f);
    Reset();
}

void PartitionedFir::Reset() {
    std::fill(input_.begin(), input_.end(), 0.0f);
    std::fill(inputs_.begin(), inputs_.end(), std::complex<float>());
    for (auto& output : outputs_) std::fill(output.begin(), output.end(), 0.0f);
    std::fill(std::begin(spectra_), std::end(spectra_), nullptr);
    position_ = newest_ = 0;
}

void PartitionedFir::SetSpectra(std::size_t place, const FirSpectra* spectra) {
    spectra_[place] = spectra;
    if (spectra) Convolve(place);
}

void PartitionedFir::TakeInput() {
    newest_ = (newest_ + partCount_ - 1) % partCount_;
    fft_.Forward(input_.data(), inputs_.data() + newest_ * binCount_);
    std::copy_n(input_.data() + partFrames_, partFrames_, input_.data());
    position_ = 0;
}

void PartitionedFir::Convolve(std::size_t place) {
    std::fill(sum_.begin(), sum_.end(), std::complex<float>());
    for (std::size_t part = 0; part < partCount_; ++part)
        vector::AddProducts(sum_.data(), inputs_.data() + (newest_ + part) % partCount_ * binCount_,
                            spectra_[place]->GetPart(part), binCount_);
    fft_.Inverse(sum_.data(), result_.data());
    // The first half holds what wrapped around.
    std::copy_n(result_.data() + partFrames_, partFrames_, outputs_[place].data());
}

void PartitionedFir::Process(const float* in, float* first, float* second, int frames) {
    float* const out[kPlaces] = {first, second};
    for (std::size_t done = 0; done < static_cast<std::size_t>(frames);) {
        const std::size_t run =
            std::min(static_cast<std::size_t>(frames) - done, partFrames_ - position_);
        std::copy_n(in + done, run, input_.data() + partFrames_ + position_);
        for (std::size_t place = 0; place < kPlaces; ++place)
            if (out[place] && spectra_[place])
                std::copy_n(outputs_[place].data() + position_, run, out[place] + done);
        position_ += run;
        done += run;
        if (position_ < partFrames_) continue;
        TakeInput();
        for (std::size_t place = 0; place < kPlaces; ++place)
            if (spectra_[place]) Convolve(place);
    }
}

}  // namespace dsp
