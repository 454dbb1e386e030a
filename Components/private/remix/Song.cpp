#include "Components/Song.h"

namespace zuc::components {
IAudioFramesGetter::~IAudioFramesGetter() = default;
Song::Song(SongAnalysis analysis) : analysis_(std::move(analysis)) {}
}  // namespace zuc::components
