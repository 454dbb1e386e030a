#include "kracore/DebugMonitor.h"

#include <map>
#include <mutex>
#include <string>

namespace kracore::debug {
namespace {

struct Monitors {
    std::mutex mutex;  // also held while a callback runs
    std::map<WStr, DebugMonitorCallback> callbacks;
};

Monitors& GetMonitors() {
    static auto* const monitors = new Monitors;  // outlives every static user
    return *monitors;
}

}  // namespace

UTF16StringStream& UTF16StringStream::operator<<(std::u16string_view text) {
    text_.append(text);
    return *this;
}

UTF16StringStream& UTF16StringStream::operator<<(std::int64_t number) {
    text_ += utility::FromUtf8(std::to_string(number));
    return *this;
}

void RegisterDebugMonitorCallback(const WStr& channel, DebugMonitorCallback callback) {
    Monitors& monitors = GetMonitors();
    const std::lock_guard lock(monitors.mutex);
    monitors.callbacks[channel] = std::move(callback);
}

void UnregisterDebugMonitorCallback(const WStr& channel) {
    Monitors& monitors = GetMonitors();
    const std::lock_guard lock(monitors.mutex);
    monitors.callbacks.erase(channel);
}

std::vector<WStr> GetDebugMonitorChannels() {
    Monitors& monitors = GetMonitors();
    const std::lock_guard lock(monitors.mutex);
    std::vector<WStr> channels;
    for (const auto& [channel, callback] : monitors.callbacks) channels.push_back(channel);
    return channels;
}

WStr ReadDebugMonitor(const WStr& channel) {
    Monitors& monitors = GetMonitors();
    const std::lock_guard lock(monitors.mutex);
    UTF16StringStream stream;
    const auto found = monitors.callbacks.find(channel);
    if (found != monitors.callbacks.end()) found->second(stream);
    return stream.GetText();
}

}  // namespace kracore::debug
