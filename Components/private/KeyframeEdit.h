#pragma once

#include <atomic>

#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>

#include "Components/KeyframeContainer.h"

namespace zuc {

/// Holds the lock for one edit and notes whether it changed anything. Edits nest; when the outermost
/// one ends, the spline is fitted anew, so that the audio thread always finds it ready.
class KeyframeContainer::Edit {
public:
    explicit Edit(KeyframeContainer& container) : container_(container) {
        container_.mutex_.lock();
        ++container_.editDepth_;
    }
    Edit(const Edit&) = delete;
    Edit& operator=(const Edit&) = delete;
    ~Edit() {
        if (--container_.editDepth_ == 0 && container_.needsFit_) container_.AdjustForBezier();
        container_.mutex_.unlock();
    }

    void MarkChanged() {
        container_.state_.modified = true;
        container_.needsFit_ = true;
        ++container_.revision_;
    }

private:
    KeyframeContainer& container_;
};

struct KeyframeContainer::Signals {
    boost::signals2::signal<void(const KeyframeContainerPtr&)> defaultChanged;
    boost::signals2::signal<void(const KeyframeContainerPtr&, bool)> keyframesChanged;
    /// Whether anybody ever listened: even asking a signal takes a lock, and without an editor a
    /// parameter may change on the audio thread.
    std::atomic<bool> isWatched{false};

    template <class Signal, class Listener>
    Connection Connect(Signal& signal, const Listener& listener) {
        isWatched = true;
        return std::make_shared<boost::signals2::scoped_connection>(signal.connect(listener));
    }
};

}  // namespace zuc
