#pragma once

#include <map>
#include <optional>

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kracore::debug {

/// Developer settings of the process, name -> text ("Remix.AvoidLoops" -> "true"). Empty at first; what is
/// absent leaves the built-in behaviour. [any, may block]
class ZUC_API DebugDatabase {
public:
    static void Set(const WStr& name, WStr value);
    static void Remove(const WStr& name);
    static std::optional<WStr> Get(const WStr& name);
    /// A whole number in base 10; nothing when absent or when the text is no number.
    static std::optional<long> GetInteger(const WStr& name);
    /// "true", "1", "on" and "yes" against "false", "0", "off" and "no"; nothing otherwise.
    static std::optional<bool> GetBool(const WStr& name);
    static std::map<WStr, WStr> GetAll();
};

/// Sets a value for as long as it lives; what was there before comes back, which takes no memory. [any]
class ZUC_API ScopedDebugValue {
public:
    ScopedDebugValue(WStr name, WStr value);
    ~ScopedDebugValue();
    ScopedDebugValue(const ScopedDebugValue&) = delete;
    ScopedDebugValue& operator=(const ScopedDebugValue&) = delete;

private:
    WStr name_;
    std::optional<WStr> before_;
};

}  // namespace kracore::debug
