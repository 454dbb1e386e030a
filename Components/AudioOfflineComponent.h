#pragma once

#include "Components/MultiChannelComponentBase.h"
#include "Components/OfflineInterfaces.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc {

/// An offline effect without the buses and parameter descriptions of the multichannel base.
class ZUC_API AudioOfflineComponent : public kraaudiofilterhost::AudioFilter,
                                      public OfflineOperations {
public:
    AudioOfflineComponent(const kracore::WStr& componentID, const kracore::WStr& displayName);
    ~AudioOfflineComponent() override;
};

namespace components {

/// The multichannel base for offline effects.
class ZUC_API MultiChannelOfflineComponent : public MultiChannelComponentBase,
                                             public OfflineOperations {
public:
    ~MultiChannelOfflineComponent() override;
    bool IsOfflineProcess() const override { return true; }

protected:
    MultiChannelOfflineComponent(const WStr& componentID, const WStr& displayName, int maxChannels);
};

}  // namespace components
}  // namespace zuc
