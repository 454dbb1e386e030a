#pragma once

#include <string>
#include <vector>

namespace zuc::host {

/// A library that the program runs with, or was compiled with when it is headers only.
struct LibraryVersion {
    std::string name;
    std::string version;
};
std::vector<LibraryVersion> GetLibraryVersions();  // [any]

/// "g++ 12.2.0": what compiled this program. [any]
std::string GetCompiler();
/// Vector instruction sets of this processor among those that the library has code for. [any]
std::vector<std::string> GetProcessorFeatures();
/// File types that can be read, as the reading library names them. [any]
std::vector<std::string> GetReadableFormats();

}  // namespace zuc::host
