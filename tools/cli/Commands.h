#pragma once

#include "CommandLine.h"

namespace zuc::cli {

// One function per command; each returns the exit code, or throws host::Error, host::Interrupted.

int RunList(const ListOptions& options);
int RunDescribe(const DescribeOptions& options);
int RunProcess(const ProcessOptions& options);
int RunGenerate(const GenerateOptions& options);
int RunPlay(const PlayOptions& options);
int RunReplayCommand(const ReplayOptions& options);
int RunPresetList(const PresetListOptions& options);
int RunPresetShow(const PresetShowOptions& options);
int RunPresetSave(const PresetSaveOptions& options);
int RunBeats(const BeatsOptions& options);
int RunRemix(const RemixOptions& options);
int RunPlot(const PlotOptions& options);
int RunValidate(const ValidateOptions& options);
int RunDoctor(const DoctorOptions& options);
int RunConsole(const ConsoleOptions& options);
int RunDemo(const DemoOptions& options);

}  // namespace zuc::cli
