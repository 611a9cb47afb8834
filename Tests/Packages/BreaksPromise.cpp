#include "Tiny.h"

struct BreaksPromise : Tiny {
    void NewFrame() override { oxsBlockLight(this, typeid(BreaksPromise)); }
    bool LightTransparency(OxState*) override { return true; }
};

OX_EXPORT_OBJECT(BreaksPromise, BreaksPromise)
