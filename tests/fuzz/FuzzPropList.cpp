// Any text is either refused with a ParseError or gives a list that is written and read back equal.

#include "kracore/PropList.h"
#include "tests/fuzz/Fuzz.h"

void zuc::fuzz::Run(std::string_view input) {
    using namespace kracore::proplist;
    PropList list;
    try {
        list = FromJson(input);
    } catch (const ParseError&) {
        return;
    }
    Require(FromJson(ToJson(list)) == list);
}
