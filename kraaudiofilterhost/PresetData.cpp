#include "kraaudiofilterhost/PresetData.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kraaudiofilterhost {
namespace {

constexpr std::string_view kComponentId = "ComponentID";
constexpr std::string_view kName = "Name";
constexpr std::string_view kVersion = "Version";
constexpr std::string_view kParams = "Params";
constexpr std::string_view kChunk = "Chunk";
constexpr std::string_view kCustom = "Custom";
constexpr std::array kKnownKeys{kComponentId, kName, kVersion, kParams, kChunk, kCustom};

WStr GetText(const kracore::proplist::PropList& list, std::string_view key) {
    const auto* text = list.Find<WStr>(key);
    return text ? *text : WStr();
}

}  // namespace

WStr PresetData::GetComponentID() const { return GetText(*list_, kComponentId); }

void PresetData::SetComponentID(const WStr& identifier) { list_->Set(kComponentId, identifier); }

WStr PresetData::GetName() const { return GetText(*list_, kName); }

void PresetData::SetName(const WStr& name) { list_->Set(kName, name); }

bool PresetData::HasVersion() const { return list_->Find<float>(kVersion) != nullptr; }

float PresetData::GetVersion() const {
    const auto* version = list_->Find<float>(kVersion);
    return version ? *version : 0.0f;
}

void PresetData::SetVersion(float version) { list_->Set(kVersion, version); }

bool PresetData::GetParams(std::list<float>& values) const {
    const auto* params = list_->Find<std::vector<float>>(kParams);
    if (!params) return false;
    values.assign(params->begin(), params->end());
    return true;
}

void PresetData::SetParams(const std::list<float>& values) {
    list_->Set(kParams, std::vector<float>(values.begin(), values.end()));
}

bool PresetData::GetChunk(kracore::proplist::Bytes& chunk) const {
    const auto* bytes = list_->Find<kracore::proplist::Bytes>(kChunk);
    if (!bytes) return false;
    chunk = *bytes;
    return true;
}

void PresetData::SetChunk(const kracore::proplist::Bytes& chunk) { list_->Set(kChunk, chunk); }

const kracore::proplist::PropList* PresetData::GetCustomData() const {
    return list_->FindList(kCustom);
}

void PresetData::SetCustomData(const kracore::proplist::PropList& custom) {
    list_->Set(kCustom, custom);
}

void PresetData::SetDataFromExistingPreset(const PresetData& other) {
    if (list_ != other.list_) *list_ = *other.list_;
}

bool PresetData::IsKnownKey(std::string_view key) {
    return std::find(kKnownKeys.begin(), kKnownKeys.end(), key) != kKnownKeys.end();
}

}  // namespace kraaudiofilterhost
