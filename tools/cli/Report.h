#pragma once

#include "host/Chain.h"
#include "host/Render.h"

namespace zuc::cli {

/// What a person should know of a finished job, on standard error: clipped samples, what was lost.
void SayWarnings(const host::RenderReport& report);
/// One line about the job on standard error, more when `verbose`.
void SayReport(const host::RenderReport& report, bool verbose);
/// The whole report as one JSON object, on standard output or, while audio goes there, on standard
/// error.
void PrintReportJson(const host::RenderReport& report, const host::Chain& chain, bool toStderr);

}  // namespace zuc::cli
