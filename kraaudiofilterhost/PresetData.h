#pragma once

#include <list>
#include <vector>

#include "kracore/Export.h"
#include "kracore/PropList.h"
#include "kracore/WStr.h"

namespace kraaudiofilterhost {

using kracore::WStr;

/// The settings of one filter, as a view of a property list that the caller keeps alive:
///
///     "ComponentID" text, "Name" text, "Version" float, "Params" normalized floats in index order,
///     "Chunk" bytes, "Custom" child list
///
/// Keys it does not know stay untouched, so that settings of a later version survive. [host]
class ZUC_API PresetData {
public:
    explicit PresetData(kracore::proplist::PropList& list) : list_(&list) {}

    const kracore::proplist::PropList& GetList() const { return *list_; }
    kracore::proplist::PropList& GetList() { return *list_; }

    WStr GetComponentID() const;
    void SetComponentID(const WStr& identifier);
    WStr GetName() const;
    void SetName(const WStr& name);

    bool HasVersion() const;
    float GetVersion() const;  // 0 when there is none
    void SetVersion(float version);

    /// False, and `values` untouched, when there are none or they have another type.
    bool GetParams(std::list<float>& values) const;
    void SetParams(const std::list<float>& values);

    bool GetChunk(kracore::proplist::Bytes& chunk) const;
    void SetChunk(const kracore::proplist::Bytes& chunk);

    const kracore::proplist::PropList* GetCustomData() const;  // null when there is none
    void SetCustomData(const kracore::proplist::PropList& custom);

    /// Copies everything the other preset holds, unknown keys too.
    void SetDataFromExistingPreset(const PresetData& other);

    /// True for a key that this class reads and writes itself.
    static bool IsKnownKey(std::string_view key);

private:
    kracore::proplist::PropList* list_;
};

/// Presets as property lists, in display order. [host]
using PresetList = std::vector<kracore::proplist::PropList>;

}  // namespace kraaudiofilterhost
