#pragma once

#include <cstddef>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "kracore/Export.h"
#include "kracore/RefCounted.h"
#include "kracore/WStr.h"

namespace kraaudiofilterhost {

using kracore::WStr;

/// Where a filter comes from: its identifier and, for one that was loaded, its file.
struct PluginLocator {
    WStr identifier;
    WStr path;
};

/// What a host lists of a filter without keeping an instance. [host]
class ZUC_API AudioFilterDescriptor : public virtual kracore::utility::RefCountedObject {
public:
    AudioFilterDescriptor() = default;
    ~AudioFilterDescriptor() override;

    PluginLocator locator;
    WStr identifier;
    WStr displayName;
    std::size_t parameterCount = 0;
    std::size_t inputChannelCount = 0;
    std::size_t outputChannelCount = 0;
    float presetVersion = 0.0f;
    bool isOffline = false;
    bool isGenerator = false;
    bool canChangeDuration = false;
    bool canUseSideChaining = false;
    bool hasCustomEditor = false;
};

/// A filter's own window. The library has none; shells draw from the parameter descriptions. [host]
class ZUC_API AudioFilterEditor : public virtual kracore::utility::RefCountedObject {
public:
    ~AudioFilterEditor() override;
    virtual void Open(void* parentWindow) = 0;
    virtual void Close() = 0;
};

}  // namespace kraaudiofilterhost
