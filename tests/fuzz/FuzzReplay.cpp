#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/Error.h"
#include "host/Replay.h"

/// Replay scripts: read or refused, never anything else; every block is small enough to be held.
extern "C" int LLVMFuzzerTestOneInput(  // NOLINT(readability-identifier-naming): libFuzzer's name
    const std::uint8_t* data,
    std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        const zuc::host::ReplayScript script = zuc::host::ParseReplayJson(text, "fuzz");
        if (script.GetLargestBlock() < 1 || script.channels < 1) __builtin_trap();
    } catch (const zuc::host::Error&) {
    }
    return 0;
}
