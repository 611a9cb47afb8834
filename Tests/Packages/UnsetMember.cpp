#include "Tiny.h"

struct UnsetMember : Tiny {
    float m_gain;

    void Register() override {
        Tiny::Register();
        oxsDeclareMember(this, "gain", m_gain);
    }
};

OX_EXPORT_OBJECT(UnsetMember, UnsetMember)
