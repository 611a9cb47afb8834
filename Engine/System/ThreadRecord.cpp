#include "Engine/System/ThreadRecord.h"

namespace oxbeam {

// The library is loaded with the program, so that a fixed offset is enough to find the record.
[[gnu::tls_model("initial-exec")]] static thread_local constinit ThreadRecord s_mine;

ThreadRecord& ThreadRecord::mine() { return s_mine; }

}  // namespace oxbeam
