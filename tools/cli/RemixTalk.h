#pragma once

#include <string>
#include <vector>

#include "host/JsonReader.h"
#include "host/RemixRender.h"

namespace zuc::cli {

/// One target, from its plan to all that was asked for.
struct RemixResult {
    host::RemixPlan plan;
    std::string output;
    host::RemixReport report;
    std::vector<std::string> files;  // besides the output
    std::vector<std::string> warnings;
};

/// What became of one target, for programs.
host::Json RemixToJson(const RemixResult& result);
/// The same for people: one line, and one for each join when `verbose`.
std::string DescribeRemix(const RemixResult& result, bool verbose);

}  // namespace zuc::cli
