#include "ZuCore/NoteNames.h"

#include <array>
#include <string>

namespace zucore::utility {
namespace {

using Names = std::array<const char*, 12>;
// clang-format off
constexpr Names kSharps{"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
constexpr Names kFlats {"C", "Db", "D", "Eb", "E", "F", "Gb", "G", "Ab", "A", "Bb", "B"};
// clang-format on

}  // namespace

bool GetNoteString(kracore::WStr& text, int note, int octave, bool flats) {
    if (note < 0 || note > 11) return false;
    std::string name = (flats ? kFlats : kSharps)[static_cast<std::size_t>(note)];
    if (octave != -1) name += std::to_string(octave);
    text = kracore::utility::FromUtf8(name);
    return true;
}

}  // namespace zucore::utility
