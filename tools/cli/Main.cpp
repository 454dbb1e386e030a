#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "Commands.h"
#include "Components/Library.h"
#include "Console.h"
#include "DeveloperSettings.h"
#include "FileUse.h"
#include "Signals.h"
#include "host/Render.h"

namespace {

using namespace zuc;

constexpr int kSignalBase = 128;  // how shells tell a process that a signal ended

/// The library runs while this lives.
struct LibraryScope {
    LibraryScope() { Initialize(); }
    ~LibraryScope() { Terminate(); }
    LibraryScope(const LibraryScope&) = delete;
    LibraryScope& operator=(const LibraryScope&) = delete;
};

int ShowHelp(const cli::HelpRequest& request) {
    if (!request.isError) {
        cli::Print(request.text);
        return static_cast<int>(host::ExitCode::kDone);
    }
    cli::Say(request.text);
    return static_cast<int>(host::ExitCode::kUsage);
}

template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

int Run(int argc, char** argv) {
    const auto [request, developerSettings, isConfined] = cli::ParseCommandLine(argc, argv);
    if (const auto* help = std::get_if<cli::HelpRequest>(&request)) return ShowHelp(*help);
    if (isConfined) host::Confine(cli::FindFiles(request));
    cli::ApplyDeveloperSettings(developerSettings);
    const LibraryScope library;
    return std::visit(
        Overloaded{[](const cli::HelpRequest& o) { return ShowHelp(o); },
                   [](const cli::ListOptions& o) { return cli::RunList(o); },
                   [](const cli::DescribeOptions& o) { return cli::RunDescribe(o); },
                   [](const cli::ProcessOptions& o) { return cli::RunProcess(o); },
                   [](const cli::GenerateOptions& o) { return cli::RunGenerate(o); },
                   [](const cli::PlayOptions& o) { return cli::RunPlay(o); },
                   [](const cli::ReplayOptions& o) { return cli::RunReplayCommand(o); },
                   [](const cli::PresetListOptions& o) { return cli::RunPresetList(o); },
                   [](const cli::PresetShowOptions& o) { return cli::RunPresetShow(o); },
                   [](const cli::PresetSaveOptions& o) { return cli::RunPresetSave(o); },
                   [](const cli::BeatsOptions& o) { return cli::RunBeats(o); },
                   [](const cli::RemixOptions& o) { return cli::RunRemix(o); },
                   [](const cli::PlotOptions& o) { return cli::RunPlot(o); },
                   [](const cli::ValidateOptions& o) { return cli::RunValidate(o); },
                   [](const cli::DoctorOptions& o) { return cli::RunDoctor(o); },
                   [](const cli::ConsoleOptions& o) { return cli::RunConsole(o); },
                   [](const cli::DemoOptions& o) { return cli::RunDemo(o); }},
        request);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        // Before anything is parsed or loaded: scripts ask for it often.
        if (argc == 2 && std::string_view(argv[1]) == "--version") {
            cli::Print("zuc " ZUC_VERSION "\n");
            return static_cast<int>(host::ExitCode::kDone);
        }
        cli::WatchSignals();
        return Run(argc, argv);
    } catch (const host::Interrupted&) {
        return kSignalBase + cli::GetInterruption();
    } catch (const host::Error& error) {
        cli::SayError(error);
        return static_cast<int>(error.GetCode());
    } catch (const std::bad_alloc&) {
        // Said without asking for memory again.
        std::fputs("zuc: out of memory\n", stderr);
        return static_cast<int>(host::ExitCode::kProcessing);
    } catch (const std::system_error& error) {
        const bool isThread = error.code() == std::errc::resource_unavailable_try_again;
        cli::SayError(host::Error(
            host::ExitCode::kProcessing, isThread ? "cannot start a thread" : error.what(), "",
            isThread ? "there is too little memory, or too many threads run" : ""));
        return static_cast<int>(host::ExitCode::kProcessing);
    } catch (const std::exception& error) {
        cli::SayError(host::Error(host::ExitCode::kProcessing, error.what()));
        return static_cast<int>(host::ExitCode::kProcessing);
    }
}
