#pragma once

#include <string>

#include "Components/Song.h"
#include "host/RemixPlan.h"
#include "host/RemixSource.h"
#include "host/SpooledAudio.h"

namespace zuc::host {

/// One page with everything in it, for a browser without network: the picture of the remix, its joins as a list
/// with a sound preview of each, and what was asked and found. Usable with the keyboard alone. `song` may be
/// null. Throws Error (kInput). [worker]
std::string MakeRemixReport(const RemixPlan& plan,
                            RemixSource& source,
                            SpooledAudio& remix,
                            const components::SongAnalysis* song);

}  // namespace zuc::host
