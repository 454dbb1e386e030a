#pragma once

extern "C" {
// Present when the program is linked with the real-time guard or started with it preloaded.
// NOLINTBEGIN(readability-identifier-naming): the guard's names
[[gnu::weak]] void rtguard_enter();
[[gnu::weak]] void rtguard_leave();
[[gnu::weak]] unsigned long rtguard_count_findings();
[[gnu::weak]] const char* rtguard_describe_last();
// NOLINTEND(readability-identifier-naming)
}

namespace zuc::host {

/// Marks work of the audio thread for as long as it lives. A guard that is present then reports what
/// must not happen there:
///
///     LD_PRELOAD=librtguard.so RTGUARD_REPORT=1 zuc process in.wav out.wav -e amplify:gain=-3dB
class [[nodiscard]] AudioThreadScope {
public:
    AudioThreadScope() {
        if (rtguard_enter) rtguard_enter();
    }
    ~AudioThreadScope() {
        if (rtguard_leave) rtguard_leave();
    }
    AudioThreadScope(const AudioThreadScope&) = delete;
    AudioThreadScope& operator=(const AudioThreadScope&) = delete;
};

}  // namespace zuc::host
