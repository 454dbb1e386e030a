#pragma once

#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "kracore/Export.h"
#include "kracore/RefCounted.h"
#include "kracore/WStr.h"

namespace kraaudiofilterhost {

using kracore::WStr;

/// What a parameter's own value measures. The numbers are part of the contract.
enum class AudioFilterParameterInfoUnit : int {
    kGeneric = 0,  // also enumerations and counts
    kHertz = 1,
    kDecibel = 2,
    kBoolean = 3,
    kFactor = 4,
    kTime = 5,
    kPercent = 6,
};

/// How a shell should treat a parameter beyond its range.
enum class AudioFilterParameterRole {
    kControl,        // shapes the sound
    kSwitch,         // shapes the sound; on from the middle of its range upwards
    kCount,          // shapes the sound; its value is a whole number, others count as the nearest
    kLink,           // on or off; ties other parameters together while a person edits them
    kDisplay,        // stored for the user interface, changes no sample
    kFollowsLayout,  // tells the channel count; setting it does nothing
    kMeter           // tells what the effect does at the moment; setting it does nothing
};

/// Describes one parameter: its name, its unit, and how its normalized value in [0, 1] maps to its own
/// unit and to text. The base maps one to one. Shared by reference; only names and bounds change after
/// construction, outside of processing. All operations are [host].
class ZUC_API AudioFilterParameterInfo : public virtual kracore::utility::RefCountedObject {
public:
    /// `name` and `label` (the unit as shown, may be empty) are localized texts.
    AudioFilterParameterInfo(const WStr& name,
                             const WStr& label,
                             AudioFilterParameterInfoUnit unit);

    // Operations of the contract, in its order.
    ~AudioFilterParameterInfo() override;                     // 0
    virtual float ToNormalized(float value) const;            // 1
    virtual float FromNormalized(float normalized) const;     // 2
    virtual bool CanRamp() const;                             // 3: true unless stepped
    virtual bool CanBeAutomated() const;                      // 4: true
    virtual bool SupportsStringForArbitraryValues() const;    // 5: true
    virtual WStr GetParameterString(float normalized) const;  // 6: two decimals at most
    virtual int GetStepCount() const;                         // 7: 0 = continuous; booleans 2

    const WStr& GetName() const { return name_; }
    void SetName(const WStr& name) { name_ = name; }
    const WStr& GetLabel() const { return label_; }
    AudioFilterParameterInfoUnit GetUnit() const { return unit_; }

    /// Whether generic parameter lists show the parameter; true at first.
    bool IsExposed() const { return exposed_; }
    void SetExposed(bool exposed) { exposed_ = exposed; }

    AudioFilterParameterRole GetRole() const { return role_; }
    void SetRole(AudioFilterParameterRole role) { role_ = role; }

    /// Name in files and scripts, whatever the language: the last part of the text key ("DelayLeft").
    /// Parameters that stand once per channel share it and count from element 1; others have element 0.
    const std::string& GetIdentifier() const { return identifier_; }
    int GetElement() const { return element_; }
    void SetIdentifier(std::string identifier, int element = 0) {
        identifier_ = std::move(identifier);
        element_ = element;
    }

private:
    WStr name_;
    WStr label_;
    AudioFilterParameterInfoUnit unit_;
    bool exposed_ = true;
    AudioFilterParameterRole role_ = AudioFilterParameterRole::kControl;
    std::string identifier_;
    int element_ = 0;
};

using AudioFilterParameterInfoPtr = boost::intrusive_ptr<AudioFilterParameterInfo>;

}  // namespace kraaudiofilterhost
