// Label tracks and subtitles: refused, or moved along with a remix into a file that is read again.

#include "host/RemixLabels.h"
#include "tests/fuzz/Fuzz.h"

void zuc::fuzz::Run(std::string_view input) {
    host::RemixPlan plan;
    plan.segments = {{0, 10, 0}, {5, 8, host::Ratio(1, 2)}, {100, 20, host::Ratio(1, 3)}};
    for (const char* path : {"fuzz.txt", "fuzz.srt", "fuzz.vtt"})
        Try([&] {
            const std::string moved = host::RemapLabels(input, path, plan);
            bool isRead = false;
            Try([&] {
                host::RemapLabels(moved, path, plan);
                isRead = true;
            });
            Require(isRead);
        });
}
