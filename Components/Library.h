#pragma once

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace zuc {

using kracore::WStr;

/// Starts the library; every call is counted and only the first acts. Called before any component is
/// created, by one thread. Throws std::bad_alloc or std::system_error without memory or threads; then it has not
/// started. [host]
ZUC_API void Initialize();
/// Ends what the matching Initialize started; only the last call acts. Deliberate: a call too many is
/// not guarded against and drives the count below zero. [host]
ZUC_API void Terminate();

/// Folder for temporary files, as the host named it; empty until then. [host]
ZUC_API WStr GetTempDir();
ZUC_API void SetupTempDir(const WStr& path);

}  // namespace zuc
