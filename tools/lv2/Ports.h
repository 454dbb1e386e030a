#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/PluginInfo.h"

namespace zuc::lv2 {

/// Key of the state that holds an effect's settings as text.
inline constexpr const char* kSettingsUri = "urn:zuc:state#settings";

inline std::string MakePluginUri(std::string_view slug, std::string_view format) {
    return "urn:zuc:" + std::string(slug) + '#' + std::string(format);
}

/// Where each port stands: audio inputs, outputs and side chain, what every plugin has, its controls.
class Ports {
public:
    explicit Ports(const host::PluginInfo& info)
        : channels_(info.format.channels),
          sideChannels_(info.sideChannels),
          controls_(info.controls.size()) {}

    std::size_t GetInput(std::size_t channel) const { return channel; }
    std::size_t GetOutput(std::size_t channel) const { return channels_ + channel; }
    std::size_t GetSide(std::size_t channel) const { return 2 * channels_ + channel; }
    std::size_t GetLatency() const { return 2 * channels_ + sideChannels_; }
    std::size_t GetEnabled() const { return GetLatency() + 1; }
    std::size_t GetSideChainUsed() const { return GetEnabled() + 1; }  // with a side chain
    std::size_t GetControl(std::size_t control) const {
        return GetEnabled() + (sideChannels_ > 0 ? 2 : 1) + control;
    }
    std::size_t GetCount() const { return GetControl(controls_); }

private:
    std::size_t channels_;
    std::size_t sideChannels_;
    std::size_t controls_;
};

}  // namespace zuc::lv2
