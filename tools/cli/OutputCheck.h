#pragma once

#include <string>

namespace zuc::cli {

/// Throws host::Error when there is a file at `path` that may not be replaced, or both flags are given.
void CheckOutput(const std::string& path, bool overwrite, bool keepExisting);

}  // namespace zuc::cli
