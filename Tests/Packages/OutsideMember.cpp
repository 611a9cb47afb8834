// Declares a parameter that lies beyond its object.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxShader.h"

class OutsideMember : public OxShader {
public:
    void Register() override { oxsDeclareParameter("stray", 2, 4096, 12); }
};

OX_EXPORT_OBJECT(OutsideMember, OutsideMember)
