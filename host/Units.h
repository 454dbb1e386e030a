#pragma once

#include <string>
#include <string_view>

#include "host/Parameters.h"

namespace zuc::host {

/// The normalized value that `text` means for `parameter`:
///
///     "-6", "+3dB", "348.8 ms", "0.35s", "1.2kHz", "64%"   a number in the parameter's own unit or one
///                                                          that converts to it (s and ms, Hz and kHz)
///     "on", "off", "true", "false", "yes", "no"            where there are two states
///     "low-pass", "Low Pass"                               the slug or the name of a choice
///     "n:0.25"                                             the normalized value itself
///     "-inf"                                               where the range begins there
///
/// Reads alike in every locale. Throws Error (kUsage) with the allowed range in the parameter's unit,
/// beginning with `effect`. [any, may block]
float ParseValue(const Parameter& parameter, std::string_view text, std::string_view effect);

/// The shortest text, with its unit, that ParseValue reads as the same value; "n:…" when no number in
/// the parameter's unit does. [any, may block]
std::string FormatValue(const Parameter& parameter, float normalized);

/// What ParseValue accepts, for people: "-96 … 48 dB", "off, on", "one of …". [any, may block]
std::string FormatRange(const Parameter& parameter);

}  // namespace zuc::host
