#pragma once

#include "kracore/Export.h"

namespace kraaudiofilterhost {

class AudioFilter;

/// What a filter, or its editor, tells the program that holds it. Every operation does nothing by
/// default. The host outlives the filter or resets the pointer first. [host]
class ZUC_API IAudioFilterHost {
public:
    virtual ~IAudioFilterHost();

    /// A parameter was changed through SetParameterAutomated: record it, redraw it.
    virtual void OnParameterAutomated(AudioFilter& filter, int index, float normalized);
    virtual void OnBeginEditing(AudioFilter& filter, int index);
    virtual void OnEndEditing(AudioFilter& filter, int index);
    /// Settings or a preset were loaded: read all parameters again.
    virtual void OnSettingsLoaded(AudioFilter& filter);
    /// Buses were rebuilt, so channel counts and parameter descriptions may differ.
    virtual void OnBusConfigurationChanged(AudioFilter& filter);
    /// The reported latency or tail may differ.
    virtual void OnInitialDelayChanged(AudioFilter& filter);
    /// An editor asks for its window to be so large; false when the host will not.
    virtual bool RequestEditorResize(AudioFilter& filter, int widthPixels, int heightPixels);
};

}  // namespace kraaudiofilterhost
