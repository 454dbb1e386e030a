#pragma once

#include "kracore/Export.h"

namespace zuc::components {

/// Answers automated values. The owner keeps it alive while it is installed in a component.
class ZUC_API AudioParamInterface {
public:
    AudioParamInterface() = default;
    AudioParamInterface(const AudioParamInterface&) = default;
    AudioParamInterface& operator=(const AudioParamInterface&) = default;
    virtual ~AudioParamInterface();

    /// Writes the automated value at the present position and returns true when there is one; the
    /// default returns false and leaves `value` alone. [audio]
    virtual bool GetKeyFrameParameter(unsigned long parameterIndex, float& value);
};

}  // namespace zuc::components
