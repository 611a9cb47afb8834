// A package that is built anew while somebody looks at what it paints: the same surface in another colour.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxShader.h"

// A static that would be one for all libraries of a process which have it, but for how packages are compiled.
template <class T>
struct Coat {
    static inline R3 color = PAINT_COLOR;
};

class Paint : public OxShader {
public:
    float m_gain;

    void Init() override { m_gain = 1.0f; }
    void Register() override {
        Init();
        oxsDeclareMember(this, "gain", m_gain);
    }
    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, m_gain * Coat<float>::color); }
};

OX_EXPORT_OBJECT(Paint, Paint)
