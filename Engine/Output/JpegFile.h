// JPEG pictures, by libjpeg-turbo alone.
#pragma once

#include "Engine/Output/Encoding.h"

namespace oxbeam {

// In pixels.
inline constexpr unsigned LongestJpegSide = 65500;

// Of three channels of 8 bits. Throws Error(InputOutput).
void writeJpeg(FileSink& sink, const Encoding& picture);

}  // namespace oxbeam
