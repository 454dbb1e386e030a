// The shared object of all bundles: every effect of the catalogue in every channel format.

#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>

#include "Ports.h"
#include "host/AudioThread.h"
#include "host/PluginProcessor.h"

namespace zuc::lv2 {
namespace {

struct Urids {
    LV2_URID settings = 0;  // 0: the host maps none
    LV2_URID string = 0;
};

class Plugin {
public:
    Plugin(host::PluginInfo info, float rateHz, const Urids& urids)
        : ports_(info),
          urids_(urids),
          buffers_(ports_.GetCount(), nullptr),
          processor_(std::move(info), rateHz) {
        for (const host::PluginControl& control : processor_.GetInfo().controls)
            initial_.push_back(control.initial);
        for (std::size_t port = 0; port < buffers_.size(); ++port) ConnectInitial(port);
    }

    void Connect(std::size_t port, void* buffer) {
        if (port >= buffers_.size()) return;
        buffers_[port] = static_cast<float*>(buffer);
        if (!buffer) ConnectInitial(port);
    }
    void Activate() { processor_.Start(); }
    void Deactivate() { processor_.Stop(); }
    void Run(int frames);

    LV2_State_Status Save(LV2_State_Store_Function store, LV2_State_Handle handle) const;
    LV2_State_Status Restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle);

private:
    /// A control that is not connected has its initial value.
    void ConnectInitial(std::size_t port) {
        if (port >= ports_.GetControl(0)) buffers_[port] = &initial_[port - ports_.GetControl(0)];
    }
    bool AreConnected(std::size_t firstPort, std::size_t count) const {
        for (std::size_t i = 0; i < count; ++i)
            if (!buffers_[firstPort + i]) return false;
        return true;
    }
    bool IsOn(std::size_t port, bool otherwise) const {
        return buffers_[port] ? *buffers_[port] > 0.0f : otherwise;
    }

    Ports ports_;
    Urids urids_;
    std::vector<float*> buffers_;  // of each port, as the host connected them
    std::vector<float> initial_;   // of the controls
    host::PluginProcessor processor_;
};

void Plugin::Run(int frames) {
    const host::PluginInfo& info = processor_.GetInfo();
    const std::size_t channels = info.format.channels;
    const bool hasSide = info.sideChannels > 0 && IsOn(ports_.GetSideChainUsed(), false) &&
                         AreConnected(ports_.GetSide(0), info.sideChannels);
    processor_.SetEnabled(IsOn(ports_.GetEnabled(), true));
    processor_.SetSideChainUsed(hasSide);
    processor_.SetControls(buffers_.data() + ports_.GetControl(0));
    if (float* latency = buffers_[ports_.GetLatency()])
        *latency = static_cast<float>(processor_.GetLatencyFrames());
    if (frames <= 0 || !AreConnected(0, 2 * channels)) return;
    processor_.Process(buffers_.data() + ports_.GetInput(0),
                       hasSide ? buffers_.data() + ports_.GetSide(0) : nullptr,
                       buffers_.data() + ports_.GetOutput(0), frames);
}

LV2_State_Status Plugin::Save(LV2_State_Store_Function store, LV2_State_Handle handle) const {
    if (!processor_.GetInfo().hasHiddenSettings) return LV2_STATE_SUCCESS;
    if (urids_.settings == 0) return LV2_STATE_ERR_NO_FEATURE;
    const std::string& settings = processor_.GetSettings();
    return store(handle, urids_.settings, settings.c_str(), settings.size() + 1, urids_.string,
                 LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
}

LV2_State_Status Plugin::Restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle) {
    if (urids_.settings == 0) return LV2_STATE_ERR_NO_FEATURE;
    std::size_t size = 0;
    std::uint32_t type = 0;
    std::uint32_t flags = 0;
    const void* value = retrieve(handle, urids_.settings, &size, &type, &flags);
    if (!value) return LV2_STATE_SUCCESS;
    if (type != urids_.string || size == 0) return LV2_STATE_ERR_BAD_TYPE;
    const auto* text = static_cast<const char*>(value);
    const bool isTaken = processor_.LoadSettings({text, strnlen(text, size)});
    return isTaken ? LV2_STATE_SUCCESS : LV2_STATE_ERR_UNKNOWN;
}

// ---- What hosts call ----

/// One URI.
struct Entry {
    std::string uri;
    host::Effect effect;
    host::PluginFormat format;
    LV2_Descriptor descriptor{};
};

/// Every effect in every format, those too that no bundle offers: whether an effect has a format shows
/// only when it is made.
const std::vector<Entry>& GetEntries();

Plugin* Get(LV2_Handle handle) { return static_cast<Plugin*>(handle); }

Urids MapUrids(const LV2_Feature* const* features) {
    for (; features && *features; ++features) {
        if (std::string_view((*features)->URI) != LV2_URID__map) continue;
        const auto* map = static_cast<const LV2_URID_Map*>((*features)->data);
        return {map->map(map->handle, kSettingsUri), map->map(map->handle, LV2_ATOM__String)};
    }
    return {};
}

LV2_Handle Instantiate(const LV2_Descriptor* descriptor,
                       double rateHz,
                       const char*,
                       const LV2_Feature* const* features) {
    try {
        for (const Entry& entry : GetEntries()) {
            if (entry.uri != descriptor->URI) continue;
            auto info = host::DescribePlugin(entry.effect, entry.format);
            if (!info) return nullptr;
            return new Plugin(std::move(*info), static_cast<float>(rateHz), MapUrids(features));
        }
    } catch (const std::exception&) {
        // The host is told by the missing instance; it has no other way.
        return nullptr;
    }
    return nullptr;
}

void Run(LV2_Handle handle, std::uint32_t frames) {
    const host::AudioThreadScope scope;
    Get(handle)->Run(static_cast<int>(frames));
}

LV2_State_Status Save(LV2_Handle handle,
                      LV2_State_Store_Function store,
                      LV2_State_Handle state,
                      std::uint32_t,
                      const LV2_Feature* const*) {
    return Get(handle)->Save(store, state);
}

LV2_State_Status Restore(LV2_Handle handle,
                         LV2_State_Retrieve_Function retrieve,
                         LV2_State_Handle state,
                         std::uint32_t,
                         const LV2_Feature* const*) {
    try {
        return Get(handle)->Restore(retrieve, state);
    } catch (const std::exception&) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

const void* GetExtensionData(const char* uri) {
    static constexpr LV2_State_Interface kState{Save, Restore};
    return std::string_view(uri) == LV2_STATE__interface ? &kState : nullptr;
}

std::vector<Entry> MakeEntries() {
    const host::EffectCatalogue catalogue;
    std::vector<Entry> entries;
    for (const host::Effect& effect : catalogue.GetEffects())
        for (const host::PluginFormat& format : host::GetPluginFormats())
            entries.push_back({MakePluginUri(effect.slug, format.name), effect, format});
    for (Entry& entry : entries)  // which stay where they are from here on
        entry.descriptor = {
            entry.uri.c_str(),
            Instantiate,
            [](LV2_Handle handle, std::uint32_t port, void* data) {
                Get(handle)->Connect(port, data);
            },
            [](LV2_Handle handle) { Get(handle)->Activate(); },
            Run,
            [](LV2_Handle handle) { Get(handle)->Deactivate(); },
            [](LV2_Handle handle) { delete Get(handle); },
            GetExtensionData,
        };
    return entries;
}

const std::vector<Entry>& GetEntries() {
    static const std::vector<Entry> entries = MakeEntries();
    return entries;
}

}  // namespace
}  // namespace zuc::lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index) {
    const auto& entries = zuc::lv2::GetEntries();
    return index < entries.size() ? &entries[index].descriptor : nullptr;
}
