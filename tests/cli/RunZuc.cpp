#include "RunZuc.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "host/AudioWriter.h"

namespace zuc::test {
namespace {

namespace fs = std::filesystem;

void Redirect(const std::string& path, int flags, int target) {
    const int fd = ::open(path.c_str(), flags, 0600);
    if (fd < 0 || ::dup2(fd, target) < 0) ::_exit(126);
    ::close(fd);
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "zuc-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() { fs::remove_all(path_); }

std::vector<std::string> TemporaryFolder::List() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

Outcome RunZuc(const std::vector<std::string>& arguments,
               const std::string& input,
               const std::string& configuration,
               const std::function<void(int)>& whileRunning) {
    const TemporaryFolder folder;
    std::ofstream(folder / "in", std::ios::binary) << input;
    std::vector<char*> words{const_cast<char*>(ZUC_BINARY)};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    const std::string in = folder / "in";
    const std::string out = folder / "out";
    const std::string err = folder / "err";
    const pid_t child = ::fork();
    if (child == 0) {
        Redirect(in, O_RDONLY, STDIN_FILENO);
        Redirect(out, O_WRONLY | O_CREAT, STDOUT_FILENO);
        Redirect(err, O_WRONLY | O_CREAT, STDERR_FILENO);
        if (!configuration.empty())                                 // the child has one thread
            ::setenv("XDG_CONFIG_HOME", configuration.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        ::execv(words[0], words.data());
        ::_exit(127);
    }
    if (whileRunning) whileRunning(child);
    int status = 0;
    ::waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadBytes(out),
            ReadBytes(err)};
}

std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteNoise(const std::string& path, int frames) {
    host::AudioWriterOptions options;
    options.path = path;
    options.samples = host::SampleFormat::kInt16;
    options.rateHz = 48000;
    options.channels = 2;
    options.dither = false;
    host::AudioWriter writer(options, {});
    std::mt19937 random(3);
    std::vector<std::vector<float>> audio(2, std::vector<float>(static_cast<std::size_t>(frames)));
    for (auto& channel : audio)
        for (float& x : channel) x = static_cast<float>(random() >> 17) / 32768.0f - 0.5f;
    audio[0][static_cast<std::size_t>(frames) / 2] = 0.5f;
    const float* const channels[] = {audio[0].data(), audio[1].data()};
    writer.Write(channels, frames);
    writer.Commit();
}

}  // namespace zuc::test
