#pragma once

#include "rtguard/RealTimeGuard.h"

/// What the parts of the guard share.
namespace rtguard::detail {

/// Whether the calling thread is in a scope and nothing allows what it does.
bool IsWatching();
/// Counts a finding; `name` lives for ever.
void Report(Kind kind, const char* name);
void ReportKernelEntry(long number);
/// True for the one allocation that FailAllocationAfter chose.
bool TakeAllocationFailure();

/// Arms the calling thread's trap for kernel entries; false when the system has none.
bool ArmTrap();
/// Lets the thread's kernel entries pass or stops them; without a trap it does nothing.
void SetTrap(bool stop);

}  // namespace rtguard::detail
