#include "Engine/Host/HostObjects.h"

#include "Engine/Host/ShadowCatcher.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"
#include "Oxbeam/OxPointLight.h"
#include "Oxbeam/OxSpotLight.h"

namespace oxbeam {

static const char BackgroundInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>environment</type>"
    "<package>Oxbeam</package>"
    "<id>OxBackground</id>"
    "<longname>Background colour</longname>"
    "<parameter>"
    "<id>background</id>"
    "<alias>color</alias>"
    "<longname>Background</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<help>Linear colour of everything that rays which hit nothing see.</help>"
    "</parameter>"
    " </ShaderInfo>";

char* Background::GetShaderInfo() { return const_cast<char*>(BackgroundInfo); }

void Background::Register() {
    Init();
    oxsDeclareMember(this, "background", color);
}

Oxvoid Background::Shade(OxState* state) { oxsReturnColor(state, color); }

template <class T>
static int registerAs() {
    return oxRegisterObject<T>(&oxNewObject<T>);
}

std::span<const HostObject> hostObjects() {
    static constexpr HostObject objects[] = {
        {"OxBackground", &registerAs<Background>},
        {"OxDirectionalLight", &registerAs<OxDirectionalLight>},
        {"OxPerspectiveCamera", &registerAs<OxPerspectiveCamera>},
        {"OxPointLight", &registerAs<OxPointLight>},
        {"OxShadowCatcher", &registerAs<ShadowCatcher>},
        {"OxSpotLight", &registerAs<OxSpotLight>},
    };
    return objects;
}

}  // namespace oxbeam
