#include "Tiny.h"

struct NoXml : Tiny {
    char* GetShaderInfo() override { return const_cast<char*>("<ShaderInfo><type>surface</ShaderInfo>"); }
};

OX_EXPORT_OBJECT(NoXml, NoXml)
