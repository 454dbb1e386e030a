#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "tests/fuzz/Fuzz.h"

namespace zuc::fuzz {

/// A folder of its own below $TMPDIR (or /tmp), gone with this object.
class TemporaryFolder {
public:
    TemporaryFolder() { Require(mkdtemp(path_.data()) != nullptr); }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& GetPath() const { return path_; }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "zuc-fuzz-XXXXXX";
};

}  // namespace zuc::fuzz
