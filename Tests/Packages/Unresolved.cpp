// Needs a function that no library has.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxShader.h"

void nobodyDefinesThis();

class Unresolved : public OxShader {
public:
    void NewFrame() override { nobodyDefinesThis(); }
};

OX_EXPORT_OBJECT(Unresolved, Unresolved)
