#include "FileUse.h"

#include <filesystem>

#include "host/SongCache.h"
#include "host/Text.h"
#include "host/UserPresets.h"

namespace zuc::cli {
namespace {

/// What each command reads and writes. A file that is missing here cannot be opened.
class FileFinder {
public:
    host::FileAccess Take() { return std::move(files_); }

    void operator()(const HelpRequest&) {}
    void operator()(const ListOptions&) {}
    void operator()(const DescribeOptions&) {}
    void operator()(const PresetListOptions&) {}
    void operator()(const PresetShowOptions&) {}
    void operator()(const DoctorOptions&) {}
    void operator()(const ConsoleOptions&) {}
    void operator()(const ProcessOptions& o) {
        Read({o.input, o.sideChain});
        Add(o.render);
    }
    void operator()(const GenerateOptions& o) { Add(o.render); }
    void operator()(const PlayOptions& o) {
        Read({o.input});
        Add(o.chain);
        files_.playsSound = true;
    }
    void operator()(const ReplayOptions& o) {
        Read({o.script, o.input, o.sideChain});
        Write({o.output, o.log});
    }
    void operator()(const PresetSaveOptions&) { Keep(host::UserPresets::GetDefaultFolder()); }
    void operator()(const BeatsOptions& o) {
        Read({o.input});
        Write({o.labels, o.click});
        if (!o.noCache) Keep(host::SongCache::GetDefaultFolder());
    }
    void operator()(const RemixOptions& o) {
        Read({o.input, o.plan, o.stems, o.remap});
        Write({o.output, o.planOut, o.labels, o.report});
        files_.folders.push_back(o.previews);
        if (!o.noCache) Keep(host::SongCache::GetDefaultFolder());
    }
    void operator()(const PlotOptions& o) {
        Read(o.inputs);
        Read({o.sideChain});
        Write({o.output});
        Add(o.chain);
        files_.drawsText = true;
        if (o.kind == "beats" || o.kind == "remix") Keep(host::SongCache::GetDefaultFolder());
    }
    void operator()(const ValidateOptions& o) { Write({o.junit}); }
    void operator()(const DemoOptions& o) { files_.folders.push_back(o.folder); }

private:
    void Read(const std::vector<std::string>& paths) {
        files_.inputs.insert(files_.inputs.end(), paths.begin(), paths.end());
    }
    void Write(const std::vector<std::string>& paths) {
        files_.outputs.insert(files_.outputs.end(), paths.begin(), paths.end());
    }
    /// A folder of the program's own; made here, as otherwise all that is beside it would become writable.
    void Keep(const std::string& folder) {
        std::error_code shownLater;
        std::filesystem::create_directories(folder, shownLater);
        files_.folders.push_back(folder);
    }
    void Add(const ChainArguments& chain) {
        Read({chain.chainFile});
        for (const std::string& effect : chain.effects)  // "@chain.json"
            if (effect.starts_with('@')) Read({effect.substr(1)});
        for (const std::string& curve : chain.automation) {  // "echo.decay-left:@curve.csv"
            const auto points = host::Trim(std::string_view(curve).substr(curve.find(':') + 1));
            if (points.starts_with('@')) Read({std::string(points.substr(1))});
        }
    }
    void Add(const RenderArguments& render) {
        Write({render.output, render.saveChainFile});
        Add(render.chain);
    }

    host::FileAccess files_;
};

}  // namespace

host::FileAccess FindFiles(const Request& request) {
    FileFinder finder;
    std::visit(finder, request);
    return finder.Take();
}

}  // namespace zuc::cli
