#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "Console.h"
#include "DeveloperSettings.h"
#include "host/Error.h"
#include "host/Text.h"
#include "kracore/Console.h"
#include "kracore/DebugDatabase.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;
using kracore::WStr;
using kracore::console::Command;
using kracore::console::CommandRegistry;
using kracore::console::OutputStream;
using kracore::debug::DebugDatabase;
using kracore::utility::FromUtf8;
using kracore::utility::ToUtf8;

class SetCommand final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        if (arguments.size() != 2)
            throw Error(ExitCode::kUsage, "set takes a name and a value", "set NAME VALUE");
        const std::string name = SetDeveloperSetting(ToUtf8(arguments[0]), ToUtf8(arguments[1]));
        out << FromUtf8(name) << u" = " << arguments[1] << u"\n";
    }
};

class GetCommand final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        for (const DeveloperSetting& setting : GetDeveloperSettings()) {
            if (!arguments.empty() && !host::EqualsIgnoringCase(setting.name, ToUtf8(arguments[0])))
                continue;
            const WStr name = FromUtf8(setting.name);
            out << name << u" = " << DebugDatabase::Get(name).value_or(u"(not set)") << u"\n";
        }
    }
};

void RegisterShellCommands() {
    CommandRegistry::RegisterCommand(u"set", u"set NAME VALUE - Sets a developer setting",
                                     [] { return std::make_unique<SetCommand>(); });
    CommandRegistry::RegisterCommand(u"get", u"get [NAME] - Shows developer settings",
                                     [] { return std::make_unique<GetCommand>(); });
}

void PrintList() {
    std::vector<std::vector<std::string>> commands;
    for (const auto& entry : CommandRegistry::GetCommands()) {
        // Help begins with the name by custom: "NAME - what it does".
        const std::string help = ToUtf8(entry.help);
        const auto dash = help.find(" - ");
        commands.push_back({dash == std::string::npos ? ToUtf8(entry.name) : help.substr(0, dash),
                            dash == std::string::npos ? help : help.substr(dash + 3)});
    }
    std::vector<std::vector<std::string>> settings;
    for (const DeveloperSetting& setting : GetDeveloperSettings())
        settings.push_back({std::string(setting.name), std::string(setting.what)});
    Print("Commands\n" + FormatColumns(commands, "  ") + "\nSettings, for set and --set\n" +
          FormatColumns(settings, "  "));
}

void Execute(const std::string& line) {
    if (host::Trim(line).empty()) return;
    OutputStream out;
    if (!CommandRegistry::Execute(FromUtf8(line), out)) {
        const std::string name =
            line.substr(0, line.find_first_of(" \t", line.find_first_not_of(" \t")));
        std::vector<std::string> names;
        for (const auto& entry : CommandRegistry::GetCommands())
            names.push_back(ToUtf8(entry.name));
        throw Error(ExitCode::kUsage,
                    "there is no console command '" + std::string(host::Trim(name)) + "'",
                    host::Join(names), host::DidYouMean(host::Trim(name), names));
    }
    Print(ToUtf8(out.GetText()));
}

/// Lines of standard input; a person at a terminal gets a prompt and may go on after a mistake.
void ExecuteLines() {
    const bool isInteractive = IsTerminal(STDIN_FILENO) && IsTerminal(STDERR_FILENO);
    for (std::string line;;) {
        if (isInteractive) std::cerr << "zuc> " << std::flush;
        if (!std::getline(std::cin, line)) return;
        try {
            Execute(line);
        } catch (const Error& error) {
            if (!isInteractive) throw;
            SayError(error);
        }
    }
}

}  // namespace

int RunConsole(const ConsoleOptions& options) {
    RegisterShellCommands();
    if (options.list)
        PrintList();
    else if (options.words.empty())
        ExecuteLines();
    else
        Execute(host::Join(options.words, " "));
    return static_cast<int>(ExitCode::kDone);
}

}  // namespace zuc::cli
