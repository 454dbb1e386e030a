#pragma once

#include "Components/Song.h"

namespace zuc::components {

/// One step's share of the progress of a whole operation.
class ProgressShare {
public:
    explicit ProgressShare(const ProgressCallback& callback) : callback_(&callback) {}

    /// The part between the fractions `from` and `to` of this share.
    ProgressShare Part(double from, double to) const {
        ProgressShare part(*this);
        part.from_ = from_ + from * (to_ - from_);
        part.to_ = from_ + to * (to_ - from_);
        return part;
    }
    /// False when the operation is to be cancelled.
    bool Report(double fraction) const {
        return !*callback_ || (*callback_)(from_ + fraction * (to_ - from_));
    }

private:
    const ProgressCallback* callback_;
    double from_ = 0;
    double to_ = 1;
};

}  // namespace zuc::components
