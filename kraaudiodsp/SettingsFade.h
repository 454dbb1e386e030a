#pragma once

#include <algorithm>
#include <optional>

namespace dsp {

/// A gain that moves linearly: start + step k at frame k of a fade.
struct LinearGain {
    float start = 0.0f;
    float step = 0.0f;  // per frame
};

/// The way from one set of settings to the next. For GetLength() frames both are in force, the new set
/// with weight k / length at frame k and the old one with the rest. A set that is requested meanwhile
/// waits, the last one wins, and starts its own fade at the frame where the running one ends.
///
/// `Settings` is a value with operator==; a request for what is in force already changes nothing.
template <class Settings>
class SettingsFade {
public:
    /// Length of every fade in frames, at least 1; ends a running one. [host]
    void SetLength(int frames) {
        length_ = std::max(frames, 1);
        Reset(GetTarget());
    }
    int GetLength() const { return length_; }

    /// In force from now on, without a fade. [audio]
    void Reset(const Settings& settings) {
        current_ = target_ = settings;
        pending_.reset();
        framesLeft_ = 0;
    }
    /// Fades to `settings`, now or when the running fade has ended. [audio]
    void Request(const Settings& settings) {
        if (framesLeft_ > 0)
            pending_ = settings;
        else
            Start(settings);
    }
    /// Goes on by `frames`, at most LimitRun(frames). [audio]
    void Advance(int frames) {
        if (framesLeft_ == 0) return;
        framesLeft_ -= frames;
        if (framesLeft_ > 0) return;
        current_ = target_;
        if (!pending_) return;
        const Settings next = *pending_;
        pending_.reset();
        Start(next);
    }

    bool IsRunning() const { return framesLeft_ > 0; }
    /// `frames`, or less when a fade ends before. [audio]
    int LimitRun(int frames) const { return IsRunning() ? std::min(frames, framesLeft_) : frames; }
    /// Frames of the running fade that are done: k of the next frame. [audio]
    int GetPosition() const { return IsRunning() ? length_ - framesLeft_ : 0; }
    /// What is in force; while a fade runs, what fades out. [audio]
    const Settings& GetCurrent() const { return current_; }
    /// What fades in; without a fade the same as GetCurrent(). [audio]
    const Settings& GetTarget() const { return target_; }

    /// A factor on its way from one set to the other; constant without a fade. [audio]
    LinearGain Between(float current, float target) const {
        return {current, IsRunning() ? (target - current) / static_cast<float>(length_) : 0.0f};
    }

private:
    void Start(const Settings& settings) {
        if (settings == current_) return;
        target_ = settings;
        framesLeft_ = length_;
    }

    Settings current_{};
    Settings target_{};
    std::optional<Settings> pending_;
    int length_ = 1;
    int framesLeft_ = 0;
};

}  // namespace dsp
