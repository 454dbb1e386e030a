#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/RemixPlan.h"

namespace zuc::host {

/// The ranges of a remix as a label track ("start<TAB>end<TAB>text"): where each is heard and where in the
/// source it comes from. [any]
std::string PlanToLabels(const RemixPlan& plan);

/// Moves texts with times along with the music: a label track (.txt), or subtitles (.srt, .vtt). What is heard
/// several times stands several times; what is not heard is left out; what a join cuts is cut. `path` names the
/// format and stands in messages. Throws Error (kInput) for other formats and for what cannot be read.
std::string RemapLabels(std::string_view text, const std::string& path, const RemixPlan& plan);

}  // namespace zuc::host
