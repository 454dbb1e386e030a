#pragma once

#include <string>
#include <vector>

#include "CommandLine.h"
#include "host/Chain.h"
#include "host/Faults.h"

namespace zuc::cli {

/// The chain that a command line describes: the chain file, then the effects, then the automation of
/// both. What is wrong goes into `faults`.
host::Chain MakeChain(const ChainArguments& arguments, host::Faults& faults);

}  // namespace zuc::cli
