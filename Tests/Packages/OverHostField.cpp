#include "Tiny.h"

struct OverHostField : Tiny {
    void Register() override {
        Init();
        oxsDeclareMember(this, "world", m_ro);
    }
};

OX_EXPORT_OBJECT(OverHostField, OverHostField)
