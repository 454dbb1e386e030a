#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace zuc::host {

/// Names of what is in a folder, hidden ones too, in ascending order. A folder that cannot be read has none, and `error`
/// says why. In contrast to the standard library's iterator it throws when memory is short. [any]
std::vector<std::string> ListFolder(const std::string& path, std::error_code& error);

/// The file that a chain of symbolic links leads to, whether it exists or not. [any]
std::filesystem::path FollowLinks(std::filesystem::path path);

}  // namespace zuc::host
