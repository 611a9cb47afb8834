// PNG pictures, by libpng alone: they are what most pictures are, and it is there at once, where the library of all other
// formats takes longer to load than many a picture to render.
#pragma once

#include "Engine/Output/Encoding.h"

namespace oxbeam {

// Of three or four channels of integers. Throws Error(InputOutput).
void writePng(FileSink& sink, const Encoding& picture);

}  // namespace oxbeam
