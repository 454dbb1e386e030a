#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zuc::cli {

/// A device that sound can go to.
struct SoundDevice {
    int index = 0;        // as --device takes it
    std::string name;     // "system"
    std::string system;   // "JACK Audio Connection Kit"
    int channels = 0;     // at most
    double rateHz = 0.0;  // its own
    bool isDefault = false;
};

/// The connection to the sound systems of this machine; one at a time.
class SoundSystem {
public:
    /// Throws host::Error (kOutput). [host]
    SoundSystem();
    ~SoundSystem();
    SoundSystem(const SoundSystem&) = delete;
    SoundSystem& operator=(const SoundSystem&) = delete;

    std::vector<SoundDevice> GetDevices() const;  // [host]
    /// The device by number, or by a part of its name; the default one for an empty text. Throws
    /// host::Error (kUsage, or kOutput when there is none at all). [host]
    SoundDevice Find(const std::string& text) const;
};

/// A stream of planar 32-bit float to a device.
class SoundStream {
public:
    /// Fills `out[c][0 .. frames)`; false when nothing more comes. [audio]
    using Fill = std::function<bool(float* const* out, int frames)>;
    struct Format {
        int channels = 2;
        int rateHz = 48000;
        int blockFrames = 0;  // 0: as the device likes
    };

    /// Whether `device` takes a rate without help. [host]
    static bool TakesRate(const SoundDevice& device, int channels, int rateHz);

    /// Opens, but does not start. Throws host::Error (kOutput). [host]
    SoundStream(const SoundDevice& device, const Format& format, Fill fill);
    ~SoundStream();
    SoundStream(const SoundStream&) = delete;
    SoundStream& operator=(const SoundStream&) = delete;

    void Start();                      // throws host::Error (kOutput) [host]
    bool IsActive() const;             // until everything that Fill gave has been played [host]
    double GetLatencySeconds() const;  // of the device [host]
    double GetLoad() const;  // of the time that a block lasts, as a fraction, lately [host]
    /// Blocks before which the device ran out of sound. [any]
    long GetDroppedBlocks() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zuc::cli
