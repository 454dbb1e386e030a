#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "CommandLine.h"
#include "Progress.h"
#include "host/AudioReader.h"
#include "host/Faults.h"
#include "host/Render.h"

namespace zuc::cli {

/// One render from a source through a chain to a file, as commands prepare it.
struct RenderJob {
    host::RenderOptions render;
    int rateHz = 0;  // of the chain and the output; 0 while the source decides
    int blockFrames = 2048;
    ProgressMode progress = ProgressMode::kNone;
    std::unique_ptr<host::AudioSource> source;
    std::unique_ptr<host::AudioReader> sideChain;
    std::optional<host::ChainProcessor> chain;
};

/// Reads and checks what all such commands take; what is wrong goes into `faults`.
void ReadArguments(const RenderArguments& arguments, RenderJob& job, host::Faults& faults);
/// A whole number in a range. Throws host::Error (kUsage).
int ParseInteger(const char* option, const std::string& text, int lo, int hi);

/// Prepares the job, runs it and tells of it as the arguments ask; returns the exit code. Throws
/// host::Interrupted.
int RunRenderJob(const RenderArguments& arguments, const std::function<RenderJob()>& prepare);

}  // namespace zuc::cli
