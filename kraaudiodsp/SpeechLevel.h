#pragma once

#include <array>
#include <cstddef>

namespace dsp::intraclip {

/// How loud a talker is, how loud the room, and whether somebody speaks, from the power of short steps.
///
///     window  = mean power over windowSteps
///     level   = the selected one, counted from the loudest, of the last buckets windows that follow each other:
///               plosives and gaps between syllables do not move it
///     floor   = the least window of 1.5 s; it falls at once, rises by 6 dB/s and stays within its bounds
///     speech  = level > floor + offset
///     body    = the level of this talker: follows `level` during speech only, within its bounds
///
/// While less speech has been heard than a time constant of the body lasts, the body is the mean of what was
/// heard. All levels in dB.
class SpeechLevel {
public:
    struct Settings {
        double stepSeconds = 0.005;
        std::size_t windowSteps = 10;    // 1 to kMaxWindowSteps
        std::size_t buckets = 10;        // 1 to kMaxBuckets
        std::size_t selectedBucket = 2;  // below buckets
        double lowestFloorDb = -60.0;
        double highestFloorDb = -50.0;
        double lowestBodyDb = -40.0;
        double highestBodyDb = -10.0;
        double attackSeconds = 1.0;   // of the body: until 1/e is left,
        double releaseSeconds = 2.0;  // where the level is lower,
        double catchUpSeconds =
            1.0;  // and where it is lower by more than the talker's own dynamics
    };
    static constexpr std::size_t kMaxWindowSteps = 80;
    static constexpr std::size_t kMaxBuckets = 32;

    void Reset(const Settings& settings);  // silence so far [audio]
    /// The mean power of the next step. `dynamicDb` is the talker's own dynamics. [audio]
    void Take(double power, double offsetDb, double dynamicDb);

    double GetWindowDb() const { return windowDb_; }
    double GetLevelDb() const { return levelDb_; }
    double GetFloorDb() const { return floorDb_; }
    double GetBodyDb() const { return bodyDb_; }  // of nobody: the target of no gain
    bool IsSpeech() const { return isSpeech_; }
    bool HasBody() const { return heardSeconds_ > 0.0; }

private:
    static constexpr std::size_t kFloorGroups = 30;  // of 50 ms
    static constexpr double kFloorGroupSeconds = 0.05;

    void TakeWindow(double power);
    void SelectLevel();
    void FollowFloor();
    void FollowBody(double dynamicDb);

    Settings settings_;
    std::array<double, kMaxWindowSteps> powers_{};                 // of the last steps
    std::array<double, kMaxWindowSteps * kMaxBuckets> windows_{};  // of the last steps, dB
    std::size_t step_ = 0;
    std::array<double, kFloorGroups> groupMinima_{};
    std::size_t groupSteps_ = 10;
    double windowDb_ = 0.0;
    double levelDb_ = 0.0;
    double floorDb_ = 0.0;
    double bodyDb_ = 0.0;
    double heardSeconds_ = 0.0;
    bool isSpeech_ = false;
};

}  // namespace dsp::intraclip
