#pragma once

#include <vector>

namespace zuc::cli {

/// Stereo audio, full scale +-1.
struct Music {
    std::vector<float> left;
    std::vector<float> right;
};

inline constexpr int kMusicRateHz = 48000;

/// Composes and plays eight bars at 96 beats a minute, 20 s: drums, bass, chords and a melody over
/// Am7 Fmaj7 C G. The melody is drawn at random from the chords' scale; the same seed gives the same
/// piece, bit by bit.
Music ComposeMusic(unsigned seed);

}  // namespace zuc::cli
