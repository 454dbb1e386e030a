// Replay scripts: read or refused, never anything else; every block is small enough to be held.

#include "host/Replay.h"
#include "tests/fuzz/Fuzz.h"

void zuc::fuzz::Run(std::string_view input) {
    const host::ReplayScript script = host::ParseReplayJson(input, "fuzz");
    Require(script.GetLargestBlock() >= 1 && script.channels >= 1);
}
