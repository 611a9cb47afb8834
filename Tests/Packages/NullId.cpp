#include "Tiny.h"

struct NullId : Tiny {
    void Register() override { oxsDeclareMember(this, nullptr, m_color); }
};

OX_EXPORT_OBJECT(NullId, NullId)
