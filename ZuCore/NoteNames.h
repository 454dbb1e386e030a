#pragma once

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace zucore::utility {

/// Sets `text` to the name of `note`, counted in semitones from C ("C", "C#", … "B"; with `flats`
/// "Db", "Eb", "Gb", "Ab", "Bb"), followed by the octave as a number ("A4"); octave -1 stands for
/// none. Returns false and leaves `text` as it is for a note outside 0 to 11. [any, may block]
ZUC_API bool GetNoteString(kracore::WStr& text, int note, int octave, bool flats);

}  // namespace zucore::utility
