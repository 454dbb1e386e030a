#pragma once

#include <string>
#include <vector>

#include "host/AudioMetadata.h"
#include "host/FileFormats.h"

struct sf_private_tag;  // a file of libsndfile

namespace zuc::host {

/// What an opened file says besides its audio. [host]
AudioMetadata ReadMetadata(sf_private_tag* file, int channels);

/// Gives a file that is being written what its container carries, before the first frame. Returns the
/// names of what that container does not carry. `file` is null for WAV, which WavHeader writes. [host]
std::vector<std::string> WriteMetadata(sf_private_tag* file,
                                       const FormatRow& row,
                                       int channels,
                                       const AudioMetadata& metadata);

}  // namespace zuc::host
