#include "Engine/Host/ThreadRecord.h"

namespace oxbeam {

thread_local constinit ThreadRecord ThreadRecord::s_mine;

}  // namespace oxbeam
