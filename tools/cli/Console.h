#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/Error.h"

namespace zuc::cli {

/// Data goes to standard output, everything that is said to standard error. Escape sequences are
/// written to terminals only, and not at all when NO_COLOR is set.
bool IsTerminal(int fd);
bool UsesColor(int fd);

/// Writes all of `text`, or throws host::Error (kOutput): a pipe without reader, a full disk.
void Print(std::string_view text);
/// Writes one line to standard error; failures there are nobody's business.
void Say(std::string_view line);
/// "zuc: …" with allowed values and hint, one block per fault.
void SayError(const host::Error& error);
void SayWarning(std::string_view text);

/// The same faults as JSON for programs, one object.
std::string ErrorToJson(const host::Error& error);

/// Rows of cells in columns of even width; the last column is as wide as it is.
std::string FormatColumns(const std::vector<std::vector<std::string>>& rows,
                          std::string_view indent);

}  // namespace zuc::cli
