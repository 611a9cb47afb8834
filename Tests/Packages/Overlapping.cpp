#include "Tiny.h"

struct Overlapping : Tiny {
    float m_pair[3];

    void Register() override {
        Init();
        oxsDeclareMember(this, "first", m_pair[0], 8);
        oxsDeclareMember(this, "second", m_pair[1], 8);
    }
};

OX_EXPORT_OBJECT(Overlapping, Overlapping)
