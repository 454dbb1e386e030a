#include "host/Sandbox.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "host/Folder.h"
#include "host/TemporaryFile.h"
#include "host/UserPresets.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

// From linux/landlock.h, which is older than the kernel on many machines.
constexpr std::uint64_t kExecute = 1u << 0, kWriteFile = 1u << 1, kReadFile = 1u << 2,
                        kReadFolder = 1u << 3, kRemoveFile = 1u << 5, kMakeFolder = 1u << 7,
                        kMakeFile = 1u << 8, kMakeSocket = 1u << 9, kMakeFifo = 1u << 10,
                        kTruncate = 1u << 14, kDeviceControl = 1u << 15;
constexpr std::uint64_t kBind = 1u << 0, kConnect = 1u << 1;
constexpr int kVersionFlag = 1;  // landlock_create_ruleset only tells the version
constexpr int kPathRule = 1;
constexpr int kNetworkVersion = 4;

struct Ruleset {
    std::uint64_t files = 0;
    std::uint64_t network = 0;
};
struct [[gnu::packed]] PathRule {
    std::uint64_t allowed = 0;
    std::int32_t folder = -1;
};

constexpr std::uint64_t kRead = kReadFile | kReadFolder;
constexpr std::uint64_t kWrite =
    kRead | kWriteFile | kTruncate | kRemoveFile | kMakeFolder | kMakeFile;
constexpr std::uint64_t kSound = kWrite | kMakeSocket | kMakeFifo | kDeviceControl;
/// What rules for anything but folders may hold.
constexpr std::uint64_t kOfFiles = kExecute | kWriteFile | kReadFile | kTruncate | kDeviceControl;

/// The rights that a version knows, from the first on.
constexpr std::uint64_t GetRights(int version) {
    constexpr std::array kCounts{13, 14, 15, 15, 16};
    const auto index = static_cast<std::size_t>(version) - 1;
    return (std::uint64_t{1} << (index < kCounts.size() ? kCounts[index] : kCounts.back())) - 1;
}

/// Read by what the libraries do on their own: look for fonts, locales, processors.
constexpr std::array kSystemFolders{"/usr",           "/lib",          "/lib32",
                                    "/lib64",         "/etc",          "/var/cache/fontconfig",
                                    "/proc/self",     "/proc/cpuinfo", "/proc/meminfo",
                                    "/proc/stat",     "/proc/sys",     "/sys/devices/system",
                                    "/sys/fs/cgroup", "/dev/random",   "/dev/urandom"};
constexpr std::array kHomeFolders{".fonts", ".fonts.conf", ".fontconfig", ".local/share/fonts",
                                  ".config/fontconfig"};
/// Variables that name further files and folders of that kind.
constexpr std::array kFolderVariables{"LOCPATH",         "FONTCONFIG_PATH", "FONTCONFIG_FILE",
                                      "XDG_DATA_HOME",   "LD_LIBRARY_PATH", "ALSA_CONFIG_PATH",
                                      "ALSA_CONFIG_DIR", "ALSA_PLUGIN_DIR"};
constexpr std::array kDevices{"/dev/null", "/dev/zero", "/dev/full", "/dev/tty"};
constexpr std::array kSoundFolders{"/dev/snd", "/dev/shm", "/tmp", "/run/user"};
constexpr std::array kSoundSettings{"/proc/asound", "/sys",   "/run",     ".asoundrc",
                                    ".config",      ".pulse", ".jackdrc", ".pulse-cookie"};

std::string GetVariable(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): never set
    return value ? value : "";
}

/// The path itself, or the nearest folder above it that exists.
fs::path FindExisting(fs::path path) {
    std::error_code ignored;
    path = fs::absolute(path, ignored).lexically_normal();
    while (!fs::exists(path, ignored) && path.has_relative_path()) path = path.parent_path();
    return path;
}

/// The rules as they are gathered; without Landlock nobody asks for them.
class Rules {
public:
    Rules(FileDescriptor ruleset, std::uint64_t handled)
        : ruleset_(std::move(ruleset)), handled_(handled) {}

    void Allow(const fs::path& path, std::uint64_t rights) const {
        const FileDescriptor file(path.empty() ? -1 : open(path.c_str(), O_PATH | O_CLOEXEC));
        struct stat status {};
        if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return;
        if (!S_ISDIR(status.st_mode)) rights &= kOfFiles;
        const PathRule rule{rights & handled_, file.Get()};
        syscall(SYS_landlock_add_rule, ruleset_.Get(), kPathRule, &rule, 0);
    }
    void AllowBelow(const std::string& home, const char* path, std::uint64_t rights) const {
        if (*path == '/')
            Allow(path, rights);
        else if (!home.empty())
            Allow(fs::path(home) / path, rights);
    }
    void Enforce() const { syscall(SYS_landlock_restrict_self, ruleset_.Get(), 0); }

private:
    FileDescriptor ruleset_;
    std::uint64_t handled_;
};

void AllowSystem(const Rules& rules) {
    const std::string home = GetVariable("HOME");
    for (const char* folder : kSystemFolders) rules.Allow(folder, kRead);
    for (const char* folder : kHomeFolders) rules.AllowBelow(home, folder, kRead);
    for (const char* variable : kFolderVariables) {
        const std::string paths = GetVariable(variable) + ":";
        for (std::size_t begin = 0, end = 0; (end = paths.find(':', begin)) != std::string::npos;
             begin = end + 1)
            rules.Allow(paths.substr(begin, end - begin), kRead);
    }
    for (const char* device : kDevices) rules.Allow(device, kRead | kWriteFile);
    rules.Allow(UserPresets::GetDefaultFolder(), kRead);
    std::error_code noFolder;
    rules.Allow(fs::temp_directory_path(noFolder), kWrite);
    if (noFolder) rules.Allow("/tmp", kWrite);
}

/// Fontconfig complains, and looks through all fonts each time, when it cannot keep what it found.
void AllowFontCache(const Rules& rules) {
    const fs::path cache = GetVariable("XDG_CACHE_HOME");
    const fs::path folder =
        (cache.is_absolute() ? cache : fs::path(GetVariable("HOME")) / ".cache") / "fontconfig";
    std::error_code ignored;
    if (folder.is_absolute()) fs::create_directories(folder, ignored);
    rules.Allow(folder, kWrite);
    rules.Allow("/var/cache/fontconfig", kWrite);
}

void AllowSound(const Rules& rules) {
    const std::string home = GetVariable("HOME");
    for (const char* folder : kSoundFolders) rules.Allow(folder, kSound);
    for (const char* path : kSoundSettings) rules.AllowBelow(home, path, kRead);
    rules.Allow(GetVariable("XDG_RUNTIME_DIR"), kSound);
}

void AllowFiles(const Rules& rules, const FileAccess& files) {
    std::error_code ignored;
    for (const std::string& input : files.inputs) {
        if (input.empty() || input == "-") continue;
        rules.Allow(input, kRead);
        // A name that is wrong is answered by one like it.
        rules.Allow(FindExisting(fs::absolute(input, ignored).parent_path()), kReadFolder);
    }
    for (const std::string& output : files.outputs) {
        if (output.empty() || output == "-") continue;
        const fs::path target = FollowLinks(output);
        if (fs::exists(target, ignored) && !fs::is_regular_file(target, ignored))
            rules.Allow(target, kWriteFile | kTruncate | kReadFile | kReadFolder);
        else
            rules.Allow(FindExisting(fs::absolute(target, ignored).parent_path()), kWrite);
    }
    for (const std::string& folder : files.folders)
        if (!folder.empty()) rules.Allow(FindExisting(folder), kWrite);
}

int GetVersion() {
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, kVersionFlag);
    return version > 0 ? static_cast<int>(version) : 0;
}

}  // namespace

void Confine(const FileAccess& files) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;
    const int version = GetVersion();
    if (version == 0) return;
    const bool limitsNetwork = version >= kNetworkVersion && !files.playsSound;
    const Ruleset set{GetRights(version), limitsNetwork ? kBind | kConnect : 0};
    // The structure grew with the network's rights; earlier kernels take the shorter one.
    const std::size_t bytes = version >= kNetworkVersion ? sizeof set : sizeof set.files;
    FileDescriptor ruleset(static_cast<int>(syscall(SYS_landlock_create_ruleset, &set, bytes, 0)));
    if (!ruleset.IsOpen()) return;
    const Rules rules(std::move(ruleset), set.files);
    AllowSystem(rules);
    AllowFiles(rules, files);
    if (files.drawsText) AllowFontCache(rules);
    if (files.playsSound) AllowSound(rules);
#ifdef ZUC_BUILD_FOLDER  // where counters go when the process ends, and a sanitizer looks up names
    rules.Allow(ZUC_BUILD_FOLDER, kWrite);
    rules.Allow("/usr", kRead | kExecute);
#endif
    rules.Enforce();
}

SandboxState GetSandboxState() {
    // Nobody who is confined may list the root folder.
    const FileDescriptor root(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return {GetVersion(), !root.IsOpen() && errno == EACCES};
}

}  // namespace zuc::host
