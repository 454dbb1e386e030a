#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace zuc::test {

/// How the command ended and what it said.
struct Outcome {
    int exitCode = -1;  // 128 + signal when a signal ended it
    std::string out;
    std::string err;
};

/// A folder of its own that is removed again.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    /// Names of what is in it, ascending.
    std::vector<std::string> List() const;

private:
    std::filesystem::path path_;
};

/// Runs the real command with `input` on standard input and $XDG_CONFIG_HOME set to `configuration`
/// when that is not empty. `whileRunning` gets the process id.
Outcome RunZuc(const std::vector<std::string>& arguments,
               const std::string& input = {},
               const std::string& configuration = {},
               const std::function<void(int)>& whileRunning = {});

std::string ReadBytes(const std::string& path);
/// Stereo noise at 48 kHz with a peak of 0.5, 16 bits; in the format of the name's extension.
void WriteNoise(const std::string& path, int frames);

}  // namespace zuc::test
