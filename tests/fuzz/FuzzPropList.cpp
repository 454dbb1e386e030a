// Any text is either refused with a ParseError or gives a list that is written and read back equal.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "kracore/PropList.h"

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    using namespace kracore::proplist;
    PropList list;
    try {
        list = FromJson({reinterpret_cast<const char*>(bytes), count});
    } catch (const ParseError&) {
        return 0;
    }
    if (FromJson(ToJson(list)) != list) std::abort();
    return 0;
}
