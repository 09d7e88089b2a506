// Vorbis comments, which FLAC and Ogg files share: texts, pictures and loop points.
#pragma once

#include "formats/xiph/pictures.h"
#include "model/waveform.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

/// Splits a comment header (vendor, count, "NAME=text" ...) as far as it is whole.
std::vector<std::string> ParseCommentHeader(std::span<const std::byte> bytes);

/// Sets the texts (the first comment of each name holds), the image, and the loop if the waveform has none
/// yet. `cover` may have seen other pictures before. Loop points are frames, as game engines write them:
/// LOOPSTART with LOOPLENGTH or LOOPEND (the first frame behind the loop), in any spelling with "_" or "-",
/// LOOP_BEGIN for LOOPSTART, and LOOP_BIDI for loops that play to and fro.
void ApplyComments(std::span<const std::string> comments, CoverPicker& cover, Waveform& wave);

/// The texts and the loop as comments; neither pictures nor what comments cannot say (see ApplyComments).
std::vector<std::string> MakeComments(const Waveform& wave);

/// The comment by which Ogg files carry an image.
std::string MakePictureComment(std::span<const std::byte> image);

} // namespace vimbo
