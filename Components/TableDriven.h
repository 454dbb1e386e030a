#pragma once

#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Components/MultiChannelComponentBase.h"
#include "Components/ParameterTable.h"
#include "kracore/Localizer.h"

namespace zuc::components {

/// Answers the parameter and preset operations of the host contract from an effect's tables.
///
/// Adds no virtual operation, so the order of the contract's operations stays as it is. An effect with
/// a rule of its own overrides that operation and forwards here for the rest.
///
/// Values are kept twice: in the parameter's own unit for the audio thread (Value), and normalized as
/// they were set, so that what the host reads and saves is bit for bit what it gave.
template <class Base>
class TableDriven : public Base {
public:
    int GetParameterCount() const override { return static_cast<int>(tables_.parameters.size()); }

    /// Clamps to [0, 1], stores, marks the settings dirty. A meter stays as it is. [host]
    void SetParameter(int index, float normalized) override {
        if (!std::isfinite(normalized) || IsMeter(index)) return;
        normalized = std::clamp(normalized, 0.0f, 1.0f);
        if (const auto info = this->GetParameterInfo(index); info && IsRow(index))
            SetValue(index, info->FromNormalized(normalized));
        Base::SetParameter(index, normalized);
    }

    /// A meter answers what the audio thread last showed on it. [host]
    float GetParameter(int index) const override {
        if (!IsMeter(index)) return Base::GetParameter(index);
        const ParameterRow& row = tables_.parameters[At(index)];
        return std::clamp(ToNormalized(row, Value(index)), 0.0f, 1.0f);
    }

    int GetNumFactoryPresets() const override { return static_cast<int>(tables_.presets.size()); }

    WStr GetFactoryPresetName(int preset) const override {
        if (preset < 0 || preset >= GetNumFactoryPresets()) return {};
        return kracore::config::Localizer::Localize(tables_.presets[At(preset)].nameKey);
    }

    /// Deliberate: each value goes through SetParameterAutomated in index order, so that the host
    /// records a preset like any other change. Values are normalized over the row's range, which for
    /// a range that moves (with the sample rate, say) keeps a preset at its place within it. [host]
    void SetFactoryPreset(int preset) override {
        if (preset < 0 || preset >= GetNumFactoryPresets()) return;
        const PresetRow& values = tables_.presets[At(preset)];
        for (const ParameterRow& row : tables_.parameters)
            this->SetParameterAutomated(row.index, ToNormalized(row, values.values[At(row.index)]));
        this->SetPresetName(GetFactoryPresetName(preset));
        this->SetPresetDirty(false);
    }

protected:
    TableDriven(const EffectTables& tables, const WStr& componentID, int maxChannels)
        : Base(componentID, kracore::config::Localizer::Localize(tables.titleKey), maxChannels),
          tables_(tables) {
        this->ReserveParameters(tables.parameters.size());
        for (const ParameterRow& row : tables_.parameters)
            values_[At(row.index)].store(row.initial, std::memory_order_relaxed);
        std::vector<std::string> presets;
        for (const PresetRow& row : tables_.presets)
            presets.emplace_back(kracore::config::GetKeyName(row.nameKey));
        this->SetFactoryPresetIdentifiers(std::move(presets));
    }

    /// Registers one description per row. [host]
    void RegisterParameterInfos() {
        this->ClearParameterInfos();
        for (const ParameterRow& row : tables_.parameters)
            this->AddParameterInfo(At(row.index), MakeParameterInfo(row));
        NormalizeValues();
    }

    /// Derives the normalized values anew from the own-unit values; called after a range has moved. A
    /// value that now lies beyond the range stays and reads as the range's end. [host]
    void NormalizeValues() {
        for (const ParameterRow& row : tables_.parameters)
            if (const auto info = this->GetParameterInfo(row.index))
                Base::SetParameter(row.index,
                                   std::clamp(info->ToNormalized(Value(row.index)), 0.0f, 1.0f));
    }

    /// Present value in the parameter's own unit. [any]
    float Value(int index) const { return values_[At(index)].load(std::memory_order_relaxed); }
    bool IsOn(int index) const { return Value(index) >= 0.5f; }
    /// The choice of an enumeration, as its key. [any]
    int Choice(int index) const { return static_cast<int>(std::lround(Value(index))); }
    /// Stores a value in the parameter's own unit. [host]
    void SetValue(int index, float value) {
        values_[At(index)].store(value, std::memory_order_relaxed);
        MarkSettingsDirty();
    }

    /// Shows a value in the parameter's own unit on a meter. [audio]
    void ShowOnMeter(int index, float value) {
        values_[At(index)].store(value, std::memory_order_relaxed);
    }

    void MarkSettingsDirty() { settingsDirty_.store(true, std::memory_order_release); }
    /// True once after a change; the audio thread asks at the start of each block. [audio]
    bool TakeSettingsDirty() {
        // The plain read first: an exchange would take the cache line from the host for nothing.
        return settingsDirty_.load(std::memory_order_relaxed) &&
               settingsDirty_.exchange(false, std::memory_order_acquire);
    }

    const EffectTables& GetTables() const { return tables_; }

private:
    static constexpr std::size_t At(int index) { return static_cast<std::size_t>(index); }
    bool IsMeter(int index) const {
        return IsRow(index) && tables_.parameters[At(index)].role == Role::kMeter;
    }
    bool IsRow(int index) const { return index >= 0 && index < GetParameterCount(); }

    EffectTables tables_;
    std::array<std::atomic<float>, kMaxParameters> values_{};
    std::atomic<bool> settingsDirty_{true};
};

}  // namespace zuc::components
