#include "DemoMusic.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace zuc::cli {
namespace {

constexpr double kBeatSeconds = 60.0 / 96.0;
constexpr int kBeatsPerBar = 4;
constexpr int kBars = 8;
constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr float kPeakLevel = 0.5f;  // -6 dBFS

/// A bar's harmony, as MIDI note numbers.
struct Chord {
    int root;
    std::array<int, 4> notes;
};
constexpr std::array<Chord, 4> kChords{{
    {33, {57, 60, 64, 67}},  // Am7
    {29, {53, 57, 60, 64}},  // Fmaj7
    {36, {55, 60, 64, 67}},  // C
    {31, {55, 59, 62, 67}},  // G
}};
constexpr std::array kScale{69, 72, 74, 76, 79, 81, 84};  // A minor pentatonic with an extra top

double ToHz(double note) { return 440.0 * std::exp2((note - 69.0) / 12.0); }

/// One-pole low-pass, -3 dB at `hz`.
class LowPass {
public:
    explicit LowPass(double hz) : coefficient_(std::exp(-kTwoPi * hz / kMusicRateHz)) {}
    double Process(double x) { return state_ = x + coefficient_ * (state_ - x); }

private:
    double coefficient_;
    double state_ = 0.0;
};

/// A sawtooth whose step is smoothed over one sample each side (polynomial band-limited step;
/// Välimäki & Huovilainen, IEEE Signal Processing Magazine 24-2, 2007).
class Saw {
public:
    Saw(double hz, double phase) : step_(hz / kMusicRateHz), phase_(phase) {}
    double Process() {
        phase_ += step_;
        if (phase_ >= 1.0) phase_ -= 1.0;
        double y = 2.0 * phase_ - 1.0;
        if (phase_ < step_) {
            const double t = phase_ / step_;
            y -= t + t - t * t - 1.0;
        } else if (phase_ > 1.0 - step_) {
            const double t = (phase_ - 1.0) / step_;
            y -= t * t + t + t + 1.0;
        }
        return y;
    }

private:
    double step_;
    double phase_;
};

class Player {
public:
    explicit Player(unsigned seed) : random_(seed) {
        const auto frames = static_cast<std::size_t>(
            std::lround(kBars * kBeatsPerBar * kBeatSeconds * kMusicRateHz));
        music_.left.resize(frames);
        music_.right.resize(frames);
    }

    Music Play() {
        for (int bar = 0; bar < kBars; ++bar) {
            const Chord& chord = kChords[static_cast<std::size_t>(bar) % kChords.size()];
            PlayChords(bar, chord);
            PlayBass(bar, chord);
            if (bar > 0) PlayDrums(bar);
            if (bar > 1) PlayMelody(bar, chord);
        }
        Finish();
        return std::move(music_);
    }

private:
    /// -1 to 1; the library's distributions differ between its versions, so the bits are used.
    double Noise() { return static_cast<double>(random_()) / 2147483648.0 - 1.0; }
    bool Chance(double probability) { return Noise() * 0.5 + 0.5 < probability; }
    int Draw(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

    /// Adds `sound(t)`, t in seconds from the beat, at a position from 0 (left) to 1 (right).
    template <class Sound>
    void Add(double beat, double seconds, double level, double position, Sound&& sound) {
        const auto begin = static_cast<std::size_t>(beat * kBeatSeconds * kMusicRateHz);
        const auto count = static_cast<std::size_t>(seconds * kMusicRateHz);
        const double left = level * std::cos(position * std::numbers::pi / 2);
        const double right = level * std::sin(position * std::numbers::pi / 2);
        for (std::size_t i = 0; i < count && begin + i < music_.left.size(); ++i) {
            const double y = sound(static_cast<double>(i) / kMusicRateHz);
            music_.left[begin + i] += static_cast<float>(left * y);
            music_.right[begin + i] += static_cast<float>(right * y);
        }
    }

    void PlayChords(int bar, const Chord& chord) {
        const double seconds = kBeatsPerBar * kBeatSeconds + 0.4;
        for (std::size_t i = 0; i < chord.notes.size(); ++i) {
            const double hz = ToHz(chord.notes[i]);
            const double position = 0.2 + 0.2 * static_cast<double>(i);
            Saw low(hz * 0.997, 0.3 * static_cast<double>(i));
            Saw high(hz * 1.003, 0.7);
            LowPass first(900.0);
            LowPass second(1400.0);
            Add(bar * kBeatsPerBar, seconds, 0.11, position, [&](double t) {
                const double attack = std::min(1.0, t / 0.25);
                const double release = std::clamp((seconds - t) / 0.4, 0.0, 1.0);
                return attack * release *
                       second.Process(first.Process(low.Process() + high.Process()));
            });
        }
    }

    void PlayBass(int bar, const Chord& chord) {
        constexpr std::array kBeats{0.0, 1.5, 2.0, 3.0, 3.5};
        constexpr std::array kSteps{0, 0, 12, 0, 7};
        for (std::size_t i = 0; i < kBeats.size(); ++i) {
            const double hz = ToHz(chord.root + kSteps[i]);
            Saw saw(hz, 0.0);
            LowPass filter(hz * 5.0);
            Add(bar * kBeatsPerBar + kBeats[i], 0.5, 0.42, 0.5, [&](double t) {
                const double envelope = std::min(1.0, t / 0.005) * std::exp(-t * 5.0);
                return envelope * (filter.Process(saw.Process()) + std::sin(kTwoPi * hz * t)) *
                       std::clamp((0.5 - t) / 0.02, 0.0, 1.0);
            });
        }
    }

    void PlayDrums(int bar) {
        const double first = bar * kBeatsPerBar;
        for (const double beat : {0.0, 1.75, 2.0}) PlayKick(first + beat);
        for (const double beat : {1.0, 3.0}) PlaySnare(first + beat, 0.34);
        if (bar % 4 == 3) PlaySnare(first + 3.75, 0.2);
        for (int eighth = 0; eighth < 2 * kBeatsPerBar; ++eighth)
            PlayHat(first + eighth * 0.5, eighth % 2 == 0 ? 0.07 : 0.12);
    }

    void PlayKick(double beat) {
        // 45 Hz with a pitch that falls from 165 Hz in about 40 ms.
        Add(beat, 0.35, 0.8, 0.5, [](double t) {
            const double phase = 45.0 * t + 120.0 * 0.02 * (1.0 - std::exp(-t / 0.02));
            return std::sin(kTwoPi * phase) * std::exp(-t * 11.0);
        });
    }

    void PlaySnare(double beat, double level) {
        LowPass dull(700.0);
        Add(beat, 0.25, level, 0.45, [&](double t) {
            const double noise = Noise();
            const double hiss = (noise - dull.Process(noise)) * std::exp(-t * 20.0);
            return 0.8 * hiss + 0.6 * std::sin(kTwoPi * 185.0 * t) * std::exp(-t * 30.0);
        });
    }

    void PlayHat(double beat, double level) {
        LowPass dull(6000.0);
        Add(beat, 0.08, level, 0.65, [&](double t) {
            const double noise = Noise();
            return (noise - dull.Process(noise)) * std::exp(-t * 60.0);
        });
    }

    /// Walks the scale by small steps, more often than not to a tone of the chord on the strong beats.
    void PlayMelody(int bar, const Chord& chord) {
        for (double beat = 0.0; beat < kBeatsPerBar;) {
            const double beats = Chance(0.3) ? 1.0 : 0.5;
            degree_ = std::clamp(degree_ + Draw(5) - 2, 0, static_cast<int>(kScale.size()) - 1);
            if (beat == 0.0) degree_ = NearestChordTone(chord);
            if (beat == 0.0 || Chance(0.8))
                PlayMelodyNote(bar * kBeatsPerBar + beat, beats,
                               kScale[static_cast<std::size_t>(degree_)]);
            beat += beats;
        }
    }

    int NearestChordTone(const Chord& chord) const {
        int best = degree_;
        int distance = static_cast<int>(kScale.size());
        for (int degree = 0; degree < static_cast<int>(kScale.size()); ++degree) {
            const bool isTone = std::any_of(chord.notes.begin(), chord.notes.end(), [&](int note) {
                return note % 12 == kScale[static_cast<std::size_t>(degree)] % 12;
            });
            if (isTone && std::abs(degree - degree_) < distance) {
                best = degree;
                distance = std::abs(degree - degree_);
            }
        }
        return best;
    }

    /// A soft bell: a sine whose phase a second one at twice its frequency moves, less and less.
    void PlayMelodyNote(double beat, double beats, int note) {
        const double hz = ToHz(note);
        const double seconds = beats * kBeatSeconds + 0.5;
        Add(beat, seconds, 0.2, 0.4 + 0.2 * (degree_ % 2), [&](double t) {
            const double vibrato = 0.12 * std::sin(kTwoPi * 5.2 * t) * std::min(1.0, t / 0.3);
            const double bell = 1.6 * std::exp(-t * 6.0) * std::sin(kTwoPi * 2.0 * hz * t);
            const double envelope = std::min(1.0, t / 0.004) * std::exp(-t * 3.2);
            return envelope * std::sin(kTwoPi * hz * t + bell + vibrato) *
                   std::clamp((seconds - t) / 0.05, 0.0, 1.0);
        });
    }

    /// Fades the last second out and brings the peak to kPeakLevel.
    void Finish() {
        float peak = 1e-9f;
        const std::size_t frames = music_.left.size();
        for (std::vector<float>* channel : {&music_.left, &music_.right})
            for (std::size_t i = 0; i < frames; ++i) {
                const auto left = static_cast<float>(frames - i) / kMusicRateHz;
                (*channel)[i] *= std::min(1.0f, left);
                peak = std::max(peak, std::abs((*channel)[i]));
            }
        for (std::vector<float>* channel : {&music_.left, &music_.right})
            for (float& sample : *channel) sample *= kPeakLevel / peak;
    }

    std::mt19937 random_;
    Music music_;
    int degree_ = 2;  // of the melody, in kScale
};

}  // namespace

Music ComposeMusic(unsigned seed) { return Player(seed).Play(); }

}  // namespace zuc::cli
