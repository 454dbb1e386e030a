#pragma once

#include <cstddef>
#include <map>

#include "kraaudiofilterhost/AudioFilterParameterInfo.h"
#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace zuc::components {

using kraaudiofilterhost::AudioFilterParameterInfoUnit;
using kracore::WStr;

/// A number in a linear or exponential range. Nothing is clamped: values outside the range map
/// outside [0, 1] and back.
///
///     linear:       value = (hi - lo) n + lo       logarithmic:  value = lo exp(n hi)
///
/// Deliberate: in logarithmic mode the high bound is the natural-log span of the range, ln(top / lo),
/// not its top. All operations are [host].
class ZUC_API GenericParameterInfo : public kraaudiofilterhost::AudioFilterParameterInfo {
public:
    /// `tag` and `extra` are stored with the description and used by none of its operations;
    /// `decimals` is the least number of decimals shown. A parameter that is not automatable is
    /// also not exposed.
    GenericParameterInfo(const WStr& name,
                         const WStr& label,
                         AudioFilterParameterInfoUnit unit,
                         int tag,
                         float lo,
                         float hi,
                         bool automatable,
                         bool logarithmic,
                         std::size_t decimals,
                         std::size_t extra);
    ~GenericParameterInfo() override;

    float ToNormalized(float value) const override;
    float FromNormalized(float normalized) const override;
    bool CanBeAutomated() const override { return automatable_; }
    /// The value with fewer decimals the larger it is: above 100 none, above 10 one, above 1 two,
    /// above 0.1 three, else four.
    WStr GetParameterString(float normalized) const override;

    int GetTag() const { return tag_; }
    float GetLoBound() const { return lo_; }
    float GetHiBound() const { return hi_; }
    void SetLoBound(float lo) { lo_ = lo; }
    void SetHiBound(float hi) { hi_ = hi; }
    bool IsLogarithmic() const { return logarithmic_; }
    std::size_t GetDecimals() const { return decimals_; }
    std::size_t GetExtra() const { return extra_; }

private:
    int tag_;
    float lo_;
    float hi_;  // linear: top of the range; logarithmic: ln(top / lo)
    bool automatable_;
    bool logarithmic_;
    std::size_t decimals_;
    std::size_t extra_;
};

/// Two states with a text each. Both mappings are the identity; exactly 0.5 reads as the false text.
class ZUC_API BoolParameterInfo : public kraaudiofilterhost::AudioFilterParameterInfo {
public:
    BoolParameterInfo(const WStr& name,
                      const WStr& label,
                      const WStr& trueText,
                      const WStr& falseText,
                      bool automatable);
    ~BoolParameterInfo() override;

    bool CanBeAutomated() const override { return automatable_; }
    WStr GetParameterString(float normalized) const override;

    const WStr& GetTrueText() const { return trueText_; }
    const WStr& GetFalseText() const { return falseText_; }

private:
    bool automatable_;
    WStr trueText_;
    WStr falseText_;
};

/// A choice among integer keys with a name each. Values map linearly between the smallest and the
/// largest key and are kept fractional; with fewer than two entries both mappings are the identity.
class ZUC_API EnumParameterInfo : public kraaudiofilterhost::AudioFilterParameterInfo {
public:
    using Entries = std::map<int, WStr>;  // key -> localized name

    EnumParameterInfo(const WStr& name, const WStr& label, Entries entries, bool automatable);
    ~EnumParameterInfo() override;

    float ToNormalized(float value) const override;
    float FromNormalized(float normalized) const override;
    bool CanBeAutomated() const override { return automatable_; }
    /// Deliberate: the argument is the key value itself, not a normalized one; it is rounded to the
    /// nearest key, and a key without entry gives an empty text.
    WStr GetParameterString(float value) const override;
    int GetStepCount() const override;

    const Entries& GetEntries() const { return entries_; }

private:
    bool HasSpan() const { return entries_.size() >= 2; }

    bool automatable_;
    Entries entries_;
};

/// A musical key; shown as a note name.
class ZUC_API KeyParameterInfo : public GenericParameterInfo {
public:
    using GenericParameterInfo::GenericParameterInfo;
    ~KeyParameterInfo() override;
    /// Twelve even steps over [0, 1]: note 2 at 0, down to note 4 and on to note 3 at 1.
    WStr GetParameterString(float normalized) const override;
};

/// A musical scale: major, minor or chromatic.
class ZUC_API ScaleParameterInfo : public GenericParameterInfo {
public:
    using GenericParameterInfo::GenericParameterInfo;
    ~ScaleParameterInfo() override;
    WStr GetParameterString(float normalized) const override;
};

}  // namespace zuc::components
