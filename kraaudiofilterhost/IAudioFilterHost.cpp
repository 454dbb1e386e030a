#include "kraaudiofilterhost/IAudioFilterHost.h"

#include "kraaudiofilterhost/AudioFilterDescriptor.h"

namespace kraaudiofilterhost {

IAudioFilterHost::~IAudioFilterHost() = default;
void IAudioFilterHost::OnParameterAutomated(AudioFilter&, int, float) {}
void IAudioFilterHost::OnBeginEditing(AudioFilter&, int) {}
void IAudioFilterHost::OnEndEditing(AudioFilter&, int) {}
void IAudioFilterHost::OnSettingsLoaded(AudioFilter&) {}
void IAudioFilterHost::OnBusConfigurationChanged(AudioFilter&) {}
void IAudioFilterHost::OnInitialDelayChanged(AudioFilter&) {}
bool IAudioFilterHost::RequestEditorResize(AudioFilter&, int, int) { return false; }

AudioFilterDescriptor::~AudioFilterDescriptor() = default;
AudioFilterEditor::~AudioFilterEditor() = default;

}  // namespace kraaudiofilterhost
