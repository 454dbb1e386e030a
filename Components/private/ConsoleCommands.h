#pragma once

namespace zuc {

/// Registers "IntraClip.Setup", "IntraClip.Debug" and "SetTimeStretchPreviewQ" with the console. [host]
void RegisterConsoleCommands();
void UnregisterConsoleCommands();

/// What "SetTimeStretchPreviewQ" last set: 10, 11 or 12; 11 at first. [any]
float GetTimeStretchPreviewQuality();

}  // namespace zuc
