#pragma once

#include "CommandLine.h"
#include "host/Sandbox.h"

namespace zuc::cli {

/// The files that a command line names, and those of its own that the command keeps. Folders of its own are
/// made if need be. [host]
host::FileAccess FindFiles(const Request& request);

}  // namespace zuc::cli
