#include "ZuCore/NoteNames.h"

#include <optional>
#include <string_view>

#include <gtest/gtest.h>

namespace zucore::utility {
namespace {

TEST(NoteNames, Table) {
    const struct {
        int note = 0, octave = 0;
        bool flats = false;
        std::optional<std::u16string_view> text;
    } rows[] = {
        {0, -1, false, u"C"},  {1, -1, false, u"C#"},   {1, -1, true, u"Db"},
        {4, -1, true, u"E"},   {6, 3, false, u"F#3"},   {9, 4, false, u"A4"},
        {10, 0, true, u"Bb0"}, {11, -2, false, u"B-2"}, {-1, -1, false, {}},
        {12, 4, true, {}},
    };
    for (const auto& row : rows) {
        kracore::WStr text = u"before";
        EXPECT_EQ(GetNoteString(text, row.note, row.octave, row.flats), row.text.has_value());
        EXPECT_EQ(text, row.text.value_or(u"before")) << row.note;
    }
}

}  // namespace
}  // namespace zucore::utility
