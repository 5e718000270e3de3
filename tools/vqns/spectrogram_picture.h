// spectrogram_picture.h - two spectrograms, one above the other, on the same scales.
#ifndef VQNS_SPECTROGRAM_PICTURE_H
#define VQNS_SPECTROGRAM_PICTURE_H

#include "replace_file.h"
#include "spectrogram.h"

namespace vqns_tool {

enum { kPictureWidth = 1280, kPictureHeight = 880 };

// Completes both spectrograms, draws them and writes the PNG file. Throws Failure.
void write_picture(ReplacedFile& file, Spectrogram& before, Spectrogram& after);

}  // namespace vqns_tool

#endif
