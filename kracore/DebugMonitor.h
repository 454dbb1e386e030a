#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <boost/function.hpp>

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kracore::debug {

/// Text that is put together piece by piece in UTF-16.
class ZUC_API UTF16StringStream {
public:
    UTF16StringStream& operator<<(std::u16string_view text);
    UTF16StringStream& operator<<(std::int64_t number);
    const WStr& GetText() const { return text_; }

private:
    WStr text_;
};

/// Writes its statistics, one "Label: value" line each. Called on the thread that asks.
using DebugMonitorCallback = boost::function<void(UTF16StringStream&)>;

/// Makes statistics available under a dotted channel name ("zuc.components.EffectThreadPool"); the last
/// registration of a name wins. The callback is never running once Unregister has returned.
/// [any, may block]
ZUC_API void RegisterDebugMonitorCallback(const WStr& channel, DebugMonitorCallback callback);
ZUC_API void UnregisterDebugMonitorCallback(const WStr& channel);

/// Names of the registered channels, ascending, and what one of them writes now (empty when there is
/// none). [any, may block]
ZUC_API std::vector<WStr> GetDebugMonitorChannels();
ZUC_API WStr ReadDebugMonitor(const WStr& channel);

}  // namespace kracore::debug
