#pragma once

#include <string>
#include <variant>
#include <vector>

namespace zuc::cli {

// What a person typed, one struct per command. Values are texts still: each command reads its own, so
// that all faults of a command line come together.
// What names a file stands in FileUse.cpp too; the sandbox keeps all others shut.

struct ListOptions {
    bool json = false;
};

struct DescribeOptions {
    std::string effect;
    bool json = false;
};

/// How a job talks while it runs and when it is done.
struct TalkOptions {
    std::string progress = "auto";
    bool quiet = false;
    bool verbose = false;
    bool json = false;
};

/// How a chain of effects is given.
struct ChainArguments {
    std::string chainFile;
    std::vector<std::string> effects;     // "amplify:gain=-6dB", "@chain.json"
    std::vector<std::string> automation;  // "echo.decay-left:0s=64%,5s=20%"
};

/// What every command takes that renders a file.
struct RenderArguments {
    std::string output;
    ChainArguments chain;
    std::string saveChainFile;
    std::string tail = "auto";
    std::string bits;
    std::string format;
    std::string rate;
    std::string onClip = "warn";
    std::string loudness;
    bool measure = false;
    std::string block;
    bool noDither = false;
    bool overwrite = false;
    bool keepExisting = false;
    TalkOptions talk;
};

struct ProcessOptions {
    std::string input;
    std::string sideChain;
    std::string range;
    RenderArguments render;
};

struct GenerateOptions {
    std::string generator;
    std::vector<std::string> settings;  // "color=white"
    std::string duration;
    std::string channels = "2";
    RenderArguments render;
};

struct ConsoleOptions {
    std::vector<std::string> words;  // of one command; none: lines of standard input
    bool list = false;
};

struct PlayOptions {
    std::string input;
    ChainArguments chain;
    std::string device;
    std::string range;
    std::string block;
    bool listDevices = false;
    bool loop = false;
    bool quiet = false;
};

struct ReplayOptions {
    std::string script;
    std::string input;
    std::string output;
    std::string sideChain;
    std::string log;
};

struct PresetListOptions {
    std::string effect;  // empty: all
    bool json = false;
};
struct PresetShowOptions {
    std::string effect;
    std::string name;
    bool json = false;
};
struct PresetSaveOptions {
    std::string effect;
    std::string name;
    std::vector<std::string> settings;  // "gain=-6dB"
    std::string step;                   // "amplify:gain=-6dB"
    bool overwrite = false;
};

struct BeatsOptions {
    std::string input;
    std::string labels;
    std::string click;
    bool json = false;
    bool noCache = false;
};

struct RemixOptions {
    std::string input;
    std::string output;
    std::string to;       // "2:37,0:30"
    std::string percent;  // "60,150"
    bool noStart = false;
    bool noEnd = false;
    std::string slack;
    std::string minLoop;
    std::string timbre;
    std::string chroma;
    std::string edits;
    int avoidLoops = 0;  // 1: asked for, -1: refused
    std::string source;
    bool atLeast = false;
    bool atMost = false;
    bool exact = false;
    std::string planOut;
    std::string plan;
    std::string stems;
    std::string remap;
    std::string labels;
    std::string previews;
    std::string report;
    std::string bits;
    std::string format;
    bool overwrite = false;
    bool keepExisting = false;
    bool noCache = false;
    TalkOptions talk;
};

struct PlotOptions {
    std::string kind;
    std::vector<std::string> inputs;
    ChainArguments chain;
    std::string sideChain;
    std::string range;
    std::string output;
    std::string rate;
    std::string channels;
    std::string length;
    std::string scale = "auto";
};

struct ValidateOptions {
    std::vector<std::string> effects;  // none: all
    std::vector<std::string> checks;   // none: all
    std::string level = "5";
    std::string seed = "1";
    std::string junit;
    bool json = false;
    bool verbose = false;
};

struct DoctorOptions {
    bool json = false;
    bool monitor = false;
};

struct DemoOptions {
    std::string folder = "zuc-demo";
    bool quiet = false;
};

/// Nothing to do: `text` is what to print, on standard output unless the command line was in error.
struct HelpRequest {
    std::string text;
    bool isError = false;
};

using Request = std::variant<HelpRequest,
                             ListOptions,
                             DescribeOptions,
                             ProcessOptions,
                             GenerateOptions,
                             PlayOptions,
                             ReplayOptions,
                             PresetListOptions,
                             PresetShowOptions,
                             PresetSaveOptions,
                             BeatsOptions,
                             RemixOptions,
                             PlotOptions,
                             ValidateOptions,
                             DoctorOptions,
                             ConsoleOptions,
                             DemoOptions>;

struct CommandLine {
    Request request;
    std::vector<std::string> developerSettings;  // "Remix.AvoidLoops=true"
    bool isConfined = true;                      // without --no-sandbox
};

/// Throws host::Error (kUsage), or a host::ErrorList with all faults of the line.
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace zuc::cli
