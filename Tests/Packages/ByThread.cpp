#include "Tiny.h"

#include <atomic>

// Each thread has a shade of its own.
static std::atomic<int> threads{0};
static thread_local const int mine = ++threads;

struct ByThread : Tiny {
    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, static_cast<float>(mine) * m_color); }
};

OX_EXPORT_OBJECT(ByThread, ByThread)
