#include "Tiny.h"

// Says that the colour is one whole number.
static const char Info[] =
    "<?xml version=\"1.0\" ?><ShaderInfo><type>surface</type><package>WrongDocument</package><id>WrongDocument</id>"
    "<parameter><id>color</id><type>int</type><default>1 1 1</default></parameter>"
    "<parameter><id>absent</id><type>float</type></parameter> </ShaderInfo>";

struct WrongDocument : Tiny {
    char* GetShaderInfo() override { return const_cast<char*>(Info); }
};

OX_EXPORT_OBJECT(WrongDocument, WrongDocument)
