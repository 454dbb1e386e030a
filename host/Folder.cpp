#include "host/Folder.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

namespace zuc::host {

namespace fs = std::filesystem;

std::vector<std::string> ListFolder(const std::string& path, std::error_code& error) {
    struct Close {
        void operator()(DIR* folder) const { closedir(folder); }
    };
    std::vector<std::string> names;
    error.clear();
    const std::unique_ptr<DIR, Close> folder(opendir(path.c_str()));
    errno = folder ? 0 : errno;
    // Each call has the stream for itself, which is all that readdir asks for.
    while (const dirent* entry =
               folder ? readdir(folder.get()) : nullptr) {  // NOLINT(concurrency-mt-unsafe)
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) error.assign(errno, std::generic_category());
    std::sort(names.begin(), names.end());
    return names;
}

fs::path FollowLinks(fs::path path) {
    constexpr int kMostLinks = 40;  // as the kernel follows
    std::error_code error;
    for (int i = 0; i < kMostLinks && fs::is_symlink(path, error); ++i) {
        const fs::path next = fs::read_symlink(path, error);
        if (error) break;
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    return path;
}

}  // namespace zuc::host
