#pragma once

#include <string>
#include <vector>

#include "CommandLine.h"
#include "host/Chain.h"
#include "host/Faults.h"

namespace zuc::cli {

/// The chain that a command line describes: `chain` as it is, the chain file, then the effects, then the
/// automation of all. What is wrong goes into `faults`.
host::Chain MakeChain(const ChainArguments& arguments,
                      host::Faults& faults,
                      host::Chain chain = {});

/// Warns of effects of chain files that are not known here.
void WarnOfPlaceholders(const host::Chain& chain);

}  // namespace zuc::cli
