#include "CommandLine.h"

#include <algorithm>
#include <deque>
#include <functional>

#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include "HelpTexts.h"
#include "host/Faults.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

/// A command of the program: its parser, what it asks for, and the arguments that it cannot do without.
struct Command {
    CLI::App* app = nullptr;
    std::function<Request()> makeRequest;
    std::vector<std::pair<std::string, const std::string*>> required;  // name as shown, value
};

class Parser {
public:
    Parser() : app_("zuc: audio effects for files, pipes and scripts", "zuc") {
        app_.footer(kExamples);
        app_.add_flag("--version", version_, "Show the version");  // Main answers it
        app_.allow_extras();
        app_.require_subcommand(0, 1);  // "plot beats": what follows a command is no other command
        AddList();
        AddDescribe();
        AddProcess();
        AddGenerate();
        AddPlay();
        AddReplay();
        AddPreset();
        AddBeats();
        AddRemix();
        AddPlot();
        AddValidate();
        AddDoctor();
        AddConsole();
        AddDemo();
    }

    Request Parse(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::CallForHelp&) {
            return HelpRequest{app_.help()};
        } catch (const CLI::CallForAllHelp&) {
            return HelpRequest{app_.help("", CLI::AppFormatMode::All)};
        } catch (const CLI::ParseError& error) {
            throw Error(ExitCode::kUsage, error.what(), "", "see 'zuc --help'");
        }
        const auto chosen = std::find_if(commands_.begin(), commands_.end(),
                                         [](const Command& c) { return c.app->parsed(); });
        if (chosen == commands_.end()) return ExplainMissingCommand();
        CheckArguments(*chosen);
        return chosen->makeRequest();
    }

    const std::vector<std::string>& GetDeveloperSettings() const { return developerSettings_; }
    bool IsConfined() const { return !noSandbox_; }

private:
    Request ExplainMissingCommand() {
        for (CLI::App* group : app_.get_subcommands())  // "zuc preset" without a verb
            if (group->remaining().empty()) return HelpRequest{group->help(), true};
        CLI::App* parent = app_.get_subcommands().empty() ? &app_ : app_.get_subcommands().front();
        if (parent->remaining().empty()) return HelpRequest{app_.help(), true};
        std::vector<std::string> names;
        for (const CLI::App* command : parent->get_subcommands([](CLI::App*) { return true; }))
            names.push_back(command->get_name());
        const std::string word = parent->remaining().front();
        const std::string what = word.starts_with('-') ? "option" : "command";
        throw Error(ExitCode::kUsage, "there is no " + what + " '" + word + "'", host::Join(names),
                    host::DidYouMean(word, names));
    }

    static void CheckArguments(const Command& command) {
        host::Faults faults;
        const std::string name = command.app->get_name();
        for (const std::string& extra : command.app->remaining()) {
            std::vector<std::string> known;
            for (const CLI::Option* option : command.app->get_options())
                for (const std::string& longName : option->get_lnames())
                    known.push_back("--" + longName);
            const bool isOption = extra.size() > 1 && extra[0] == '-';
            faults.Add(Error(ExitCode::kUsage,
                             fmt::format("{} {} '{}'", name,
                                         isOption ? "has no option" : "does not expect", extra),
                             isOption ? host::Join(known) : "",
                             host::DidYouMean(extra.substr(0, extra.find('=')), known)));
        }
        for (const auto& [argument, value] : command.required)
            if (value->empty())
                faults.Add(Error(ExitCode::kUsage, fmt::format("{}: {} is missing", name, argument),
                                 "", fmt::format("see 'zuc {} --help'", name)));
        faults.ThrowIfAny();
    }

    template <class Options>
    Command& AddCommand(CLI::App& parent, const char* name, const char* what, Options& options) {
        CLI::App* app = parent.add_subcommand(name, what);
        app->allow_extras();
        app->add_flag("--no-sandbox", noSandbox_,
                      "Do not confine the command to the files it names");
        commands_.push_back({app, [&options]() -> Request { return options; }, {}});
        return commands_.back();
    }

    void AddList() {
        Command& command = AddCommand(app_, "list", "Show every effect", list_);
        command.app->add_flag("--json", list_.json, "For programs");
    }

    void AddDescribe() {
        Command& command = AddCommand(
            app_, "describe", "Show an effect's parameters, presets and layouts", describe_);
        command.app->add_option("EFFECT", describe_.effect, "Its name, as 'zuc list' shows it");
        command.app->add_flag("--json", describe_.json, "For programs");
        command.app->footer("Example:\n  zuc describe amplify");
        command.required = {{"EFFECT", &describe_.effect}};
    }

    void AddProcess() {
        Command& command = AddCommand(app_, "process", "Run a file through effects", process_);
        ProcessOptions& o = process_;
        CLI::App& app = *command.app;
        app.add_option("IN", o.input, "Audio file to read; - is standard input");
        app.add_option("OUT", o.render.output, "Audio file to write; - is standard output");
        AddChain(app, o.render.chain);
        app.add_option("--sidechain", o.sideChain,
                       "Audio file that drives the side chain of the effects");
        app.add_option("--range", o.range, "Part of the input: BEGIN..END, in seconds or mm:ss");
        AddOutput(app, o.render);
        AddDeveloperSettings(app);
        app.footer(kProcessExamples);
        command.required = {{"IN", &o.input}, {"OUT", &o.render.output}};
    }

    void AddGenerate() {
        Command& command = AddCommand(app_, "generate", "Make sound: noise", generate_);
        GenerateOptions& o = generate_;
        CLI::App& app = *command.app;
        app.add_option("GENERATOR", o.generator, "Its name, as 'zuc list' shows it");
        app.add_option("OUT", o.render.output, "Audio file to write; - is standard output");
        app.add_option("SETTING", o.settings, "NAME=VALUE of the generator, also preset=NAME");
        app.add_option("--duration", o.duration, "Length, in seconds or mm:ss (10s)");
        app.add_option("--channels", o.channels, "Channels, 1 to 32 (2)");
        AddChain(app, o.render.chain);
        AddOutput(app, o.render);
        AddDeveloperSettings(app);
        app.footer(kGenerateExamples);
        command.required = {{"GENERATOR", &o.generator}, {"OUT", &o.render.output}};
    }

    static void AddOutput(CLI::App& app, RenderArguments& o) {
        app.add_option("--save-chain", o.saveChainFile, "Save the chain to a file");
        app.add_option("--tail", o.tail,
                       "Output behind the end of the input: auto, none or seconds");
        app.add_option("--bits", o.bits, "Depth of the output: 16, 24, 32 or float");
        app.add_option("--format", o.format, "Format of the output, if its name does not tell");
        app.add_option("--rate", o.rate, "Sample rate of the output, in Hz");
        app.add_option("--on-clip", o.onClip,
                       "Samples beyond full scale: warn, error, limit, normalize");
        app.add_option("--loudness", o.loudness,
                       "Bring the output to this integrated loudness, for example -16LUFS");
        app.add_flag("--measure", o.measure, "Report loudness and true peak of the output");
        app.add_flag("--no-dither", o.noDither, "Round to 16 bits without dither");
        app.add_option("--block", o.block, "Frames per block; changes no sample");
        app.add_flag("-y,--yes", o.overwrite, "Replace an existing output");
        app.add_flag("-n,--no-overwrite", o.keepExisting, "Never replace an existing output");
        AddTalk(app, o.talk);
    }

    /// For every command that runs effects.
    void AddDeveloperSettings(CLI::App& app) {
        app.add_option("--set", developerSettings_,
                       "Developer setting NAME=VALUE, see 'zuc console --list'; repeat for more")
            ->allow_extra_args(false);
    }

    static void AddChain(CLI::App& app, ChainArguments& chain) {
        app.add_option("-e,--effect", chain.effects, "Effect to run through; repeat for a chain")
            ->allow_extra_args(false);
        app.add_option("-a,--automate", chain.automation,
                       "Curve of a parameter: EFFECT.PARAMETER:TIME=VALUE,…; repeat for more")
            ->allow_extra_args(false);
        app.add_option("--chain", chain.chainFile, "Chain file, before the effects of -e");
    }

    static void AddTalk(CLI::App& app, TalkOptions& talk) {
        app.add_flag("--json", talk.json, "Report for programs");
        app.add_option("--progress", talk.progress, "Show progress: auto, always, never or json");
        app.add_flag("-q,--quiet", talk.quiet, "Say nothing but errors");
        app.add_flag("-v,--verbose", talk.verbose, "Say more");
    }

    void AddPlay() {
        Command& command = AddCommand(app_, "play", "Listen to a file through effects", play_);
        PlayOptions& o = play_;
        CLI::App& app = *command.app;
        app.add_option("IN", o.input, "Audio file to play");
        AddChain(app, o.chain);
        app.add_option("--device", o.device, "Sound device, by number or a part of its name");
        app.add_flag("--list-devices", o.listDevices, "Show the sound devices");
        app.add_flag("--loop", o.loop, "Play again and again");
        app.add_option("--range", o.range, "Part of the input: BEGIN..END, in seconds or mm:ss");
        app.add_option("--block", o.block, "Frames per block of the device; as it likes without");
        app.add_flag("-q,--quiet", o.quiet, "Say nothing but errors");
        AddDeveloperSettings(app);
        app.footer(kPlayExamples);
    }

    void AddReplay() {
        Command& command =
            AddCommand(app_, "replay", "Play a script of contract calls on one effect", replay_);
        ReplayOptions& o = replay_;
        command.app->add_option("SCRIPT", o.script, "The script, JSON");
        command.app->add_option("IN", o.input, "Audio file that feeds the effect");
        command.app->add_option("OUT", o.output, "Audio file to write");
        command.app->add_option("--side", o.sideChain, "Audio file that feeds the side chain");
        command.app->add_option("--log", o.log,
                                "Where the answers go, as JSON; - is standard output");
        AddDeveloperSettings(*command.app);
        command.app->footer(kReplayExamples);
        command.required = {{"SCRIPT", &o.script}, {"IN", &o.input}, {"OUT", &o.output}};
    }

    void AddPreset() {
        CLI::App* group = app_.add_subcommand("preset", "List, show and save presets");
        group->allow_extras();
        group->footer(kPresetExamples);
        Command& list =
            AddCommand(*group, "list", "Show the presets of one or all effects", presetList_);
        list.app->add_option("EFFECT", presetList_.effect, "Whose; all without it");
        list.app->add_flag("--json", presetList_.json, "For programs");

        Command& show = AddCommand(*group, "show", "Show what a preset sets", presetShow_);
        show.app->add_option("EFFECT", presetShow_.effect, "Whose");
        show.app->add_option("NAME", presetShow_.name, "Its name");
        show.app->add_flag("--json", presetShow_.json, "As a chain file");
        show.required = {{"EFFECT", &presetShow_.effect}, {"NAME", &presetShow_.name}};

        Command& save = AddCommand(*group, "save", "Save settings under a name", presetSave_);
        save.app->add_option("EFFECT", presetSave_.effect, "Whose");
        save.app->add_option("NAME", presetSave_.name, "Its name");
        save.app->add_option("SETTING", presetSave_.settings, "NAME=VALUE, also preset=NAME");
        save.app->add_option("-e,--effect", presetSave_.step, "The same as EFFECT:NAME=VALUE,…");
        save.app->add_flag("-y,--yes", presetSave_.overwrite, "Replace a preset of that name");
        save.required = {{"EFFECT", &presetSave_.effect}, {"NAME", &presetSave_.name}};
    }

    void AddBeats() {
        Command& command = AddCommand(app_, "beats", "Find the beats of a piece of music", beats_);
        BeatsOptions& o = beats_;
        command.app->add_option("IN", o.input, "Audio file");
        command.app->add_flag("--json", o.json, "Times of all beats, for programs");
        command.app->add_option("--labels", o.labels, "Write a label track for audio editors");
        command.app->add_option("--click", o.click, "Write the music with a tick on every beat");
        command.app->add_flag("--no-cache", o.noCache, "Neither use nor keep earlier results");
        AddDeveloperSettings(*command.app);
        command.required = {{"IN", &o.input}};
    }

    void AddRemix() {
        Command& command =
            AddCommand(app_, "remix", "Make a piece of music last as long as you want", remix_);
        RemixOptions& o = remix_;
        CLI::App& app = *command.app;
        app.add_option("IN", o.input, "Audio file with the music");
        app.add_option("OUT", o.output, "Audio file to write; %T in its name is the target");
        app.add_option("--to", o.to, "How long: 2:37, or several: 2:37,0:30");
        app.add_option("--percent", o.percent, "The same in percent of the song: 60, or 60,150");
        app.add_flag("--no-start", o.noStart, "It need not begin as the song begins");
        app.add_flag("--no-end", o.noEnd, "It need not end as the song ends");
        app.add_option("--slack", o.slack, "Seconds that the end may be off, 0 to 30 (5)");
        app.add_option("--min-loop", o.minLoop, "Beats that a jump back goes at least (8)");
        app.add_option("--timbre", o.timbre, "Weight of alike sound at the joins, 0 to 5 (1)");
        app.add_option("--chroma", o.chroma, "Weight of alike harmony at the joins, 0 to 5 (1)");
        app.add_option("--edits", o.edits,
                       "short (many jumps near by), long (few, anywhere) or 0 to 1 (long)");
        app.add_flag("--avoid-loops,!--allow-loops", o.avoidLoops,
                     "Do not play one loop again and again (on)");
        app.add_option("--source", o.source, "Part of the song that may be used: A..B");
        app.add_flag("--at-least", o.atLeast, "Never shorter than the target");
        app.add_flag("--at-most", o.atMost, "Never longer than the target");
        app.add_flag("--exact", o.exact, "As long as the target to the sample, with a fade");
        AddRemixFiles(app, o);
        AddDeveloperSettings(app);
        AddTalk(app, o.talk);
        app.footer(kRemixExamples);
        command.required = {{"IN", &o.input}};
    }

    static void AddRemixFiles(CLI::App& app, RemixOptions& o) {
        app.add_option("--plan-out", o.planOut, "Write the ranges that are played, JSON");
        app.add_option("--plan", o.plan, "Play such a file; nothing is analysed or searched");
        app.add_option("--stems", o.stems,
                       "Folder of tracks of the same song; the same is made of each, in OUT-stems");
        app.add_option("--remap", o.remap, "Labels (.txt) or subtitles (.srt, .vtt) to move along");
        app.add_option("--labels", o.labels, "Write where each range comes from, as labels");
        app.add_option("--preview-joins", o.previews, "Folder for a short file of every join");
        app.add_option("--report", o.report, "Write a page to look at and listen to, .html");
        app.add_option("--bits", o.bits, "Depth of the output: 16, 24, 32 or float");
        app.add_option("--format", o.format, "Format of the output, if its name does not tell");
        app.add_flag("-y,--yes", o.overwrite, "Replace an existing output");
        app.add_flag("-n,--no-overwrite", o.keepExisting, "Never replace an existing output");
        app.add_flag("--no-cache", o.noCache, "Neither use nor keep earlier results");
    }

    void AddPlot() {
        Command& command =
            AddCommand(app_, "plot", "Draw what effects do, or beats, as SVG or PNG", plot_);
        PlotOptions& o = plot_;
        CLI::App& app = *command.app;
        app.add_option("KIND", o.kind,
                       "beats, remix, impulse, response, transfer, gain, curve or waveform");
        app.add_option("IN", o.inputs,
                       "Of beats and gain: audio file; of remix: audio file and plan; of "
                       "waveform: one or more");
        AddChain(app, o.chain);
        app.add_option("-o,--output", o.output,
                       "Picture to write, .svg or .png; replaced if there");
        app.add_option("--sidechain", o.sideChain,
                       "Of gain: audio file that drives the side chain");
        app.add_option("--range", o.range, "Of gain and waveform: part of the files, BEGIN..END");
        app.add_option("--rate", o.rate, "Sample rate in Hz (48000)");
        app.add_option("--channels", o.channels, "Channels, 1 to 8 (2)");
        app.add_option("--length", o.length,
                       "Seconds shown (the tail, at most 10; of curve: to the last point)");
        app.add_option("--scale", o.scale, "Of impulse: auto, amplitude or level");
        AddDeveloperSettings(app);
        app.footer(kPlotExamples);
        command.required = {{"KIND", &o.kind}, {"-o", &o.output}};
    }

    void AddValidate() {
        Command& command =
            AddCommand(app_, "validate", "Check that effects keep their promises", validate_);
        ValidateOptions& o = validate_;
        command.app->add_option("EFFECT", o.effects, "Which; all without it");
        command.app->add_option("--level", o.level, "1 quick to 10 very long (5)");
        command.app->add_option("--check", o.checks, "Only this one, such as tail; repeat for more")
            ->allow_extra_args(false);
        command.app->add_option("--seed", o.seed, "Of what is drawn at random (1)");
        command.app->add_option("--junit", o.junit, "Write a report for CI servers, JUnit XML");
        command.app->add_flag("--json", o.json, "For programs");
        command.app->add_flag("-v,--verbose", o.verbose, "Every check, and why one was left out");
        command.app->footer(kValidateNotes);
    }

    void AddDoctor() {
        Command& command =
            AddCommand(app_, "doctor", "Check that this installation works", doctor_);
        command.app->add_flag("--json", doctor_.json, "For programs");
        command.app->add_flag("--monitor", doctor_.monitor, "Show the library's statistics too");
        AddDeveloperSettings(*command.app);
    }

    void AddConsole() {
        Command& command = AddCommand(app_, "console", "Run a developer command", console_);
        command.app->add_option("COMMAND", console_.words,
                                "Its name and arguments; without any, lines of standard input");
        command.app->add_flag("--list", console_.list, "Show the commands and settings");
        AddDeveloperSettings(*command.app);
        command.app->footer(kConsoleExamples);
    }

    void AddDemo() {
        Command& command = AddCommand(app_, "demo", "Compose a short piece and process it", demo_);
        command.app->add_option("DIR", demo_.folder, "Folder for the results (zuc-demo)");
        command.app->add_flag("-q,--quiet", demo_.quiet, "Say nothing but errors");
        AddDeveloperSettings(*command.app);
    }

    CLI::App app_;
    bool version_ = false;
    bool noSandbox_ = false;
    std::deque<Command> commands_;  // AddCommand hands out references
    ListOptions list_;
    DescribeOptions describe_;
    ProcessOptions process_;
    GenerateOptions generate_;
    PlayOptions play_;
    ReplayOptions replay_;
    PresetListOptions presetList_;
    PresetShowOptions presetShow_;
    PresetSaveOptions presetSave_;
    BeatsOptions beats_;
    RemixOptions remix_;
    PlotOptions plot_;
    ValidateOptions validate_;
    DoctorOptions doctor_;
    ConsoleOptions console_;
    DemoOptions demo_;
    std::vector<std::string> developerSettings_;
};

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
    Parser parser;
    Request request = parser.Parse(argc, argv);
    return {std::move(request), parser.GetDeveloperSettings(), parser.IsConfined()};
}

}  // namespace zuc::cli
