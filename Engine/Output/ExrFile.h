// EXR pictures, by the small library at the bottom of OpenEXR: their layers, and all that is said of them.
#pragma once

#include "Engine/Output/Encoding.h"

namespace oxbeam {

// Of channels of floats. Blocks of rows are compressed side by side. Throws Error(InputOutput).
void writeExr(FileSink& sink, const Encoding& picture);

}  // namespace oxbeam
