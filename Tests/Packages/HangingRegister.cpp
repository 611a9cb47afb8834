#include "Tiny.h"

struct HangingRegister : Tiny {
    void Register() override {
        for (volatile bool always = true; always;) {
        }
    }
};

OX_EXPORT_OBJECT(HangingRegister, HangingRegister)
