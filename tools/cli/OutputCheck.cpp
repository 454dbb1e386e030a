#include "OutputCheck.h"

#include <sys/stat.h>

#include "host/Error.h"

namespace zuc::cli {
namespace {

/// Whether there is something at `path` that writing would replace.
bool WouldReplace(const std::string& path) {
    struct stat status {};
    return path != "-" && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void CheckOutput(const std::string& path, bool overwrite, bool keepExisting) {
    using host::Error;
    using host::ExitCode;
    if (overwrite && keepExisting) throw Error(ExitCode::kUsage, "-y and -n exclude each other");
    if (overwrite || !WouldReplace(path)) return;
    throw Error(ExitCode::kOutput, path + " exists already", "",
                keepExisting ? "" : "-y replaces it");
}

}  // namespace zuc::cli
