#pragma once

#include <string>
#include <vector>

namespace zuc::host {

/// What a process will do with files, as it knows from its arguments. Names as a person wrote them: "-", what
/// is empty and what does not exist are passed over.
struct FileAccess {
    std::vector<std::string> inputs;   // files that it reads, or folders with all that is in them
    std::vector<std::string> outputs;  // files that it writes; their folders become writable
    std::vector<std::string> folders;  // writable with all that is in them, made or yet to be made
    bool drawsText =
        false;  // looks for fonts, and keeps where they are in $XDG_CACHE_HOME/fontconfig
    bool playsSound = false;  // needs the devices and the sound servers' files and sockets
};

/// Confines this thread, and those that it starts, for good (Linux, Landlock).
///
/// Besides `files` it may read the system's programs, libraries, fonts and settings, the saved presets and the
/// names beside the inputs, and write below $TMPDIR (or /tmp); a folder yet to be made opens the nearest one
/// above it. It may run no program and, unless it plays sound, connect to no network. What is open stays so. It also
/// gives up new privileges (PR_SET_NO_NEW_PRIVS). Where the kernel has no Landlock, or only an early one, it
/// does what there is and says nothing. Called before any thread starts. [host]
void Confine(const FileAccess& files);

struct SandboxState {
    int version = 0;        // of the kernel's Landlock; 0 when it has none
    bool isActive = false;  // found out by trying
};
SandboxState GetSandboxState();  // [host]

}  // namespace zuc::host
