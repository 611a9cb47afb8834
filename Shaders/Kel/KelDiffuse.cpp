#include "KelDiffuse.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelDiffuse</id>"
    "<longname>Kel-based shader for purely diffuse surfaces.</longname>"
    "<parameter>"
    "<id>diffuseColor</id>"
    "<alias>diffuse</alias>"
    "<alias>rd</alias>"
    "<longname>diffuse Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>The color of the diffuse component of the material.</help>"
    "</parameter>"
    "<parameter>"
    "<id>emissiveColor</id>"
    "<longname>Emissive Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<help>Emissive color.</help>"
    "</parameter>"
    "<parameter>"
    "<id>texture</id>"
    "<longname>Diffuse Texture</longname>"
    "<type>int</type>"
    "<interpretation><texture/></interpretation>"
    "<default>Ox_NOTEXTURE</default>"
    "<help>The Texture with which the diffuse color is modulated</help>"
    "</parameter>"
    " </ShaderInfo>";

char* KelDiffuseShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelDiffuseShader::Init() {
    KelShader::Init();
    diffuseColor = R3(0.5f, 0.5f, 0.5f);
    emissiveColor = Black;
    textureID = Ox_NOTEXTURE;
}

void KelDiffuseShader::NewFrame() {
    if (!mayHaveHoles()) oxsBlockLight(this, typeid(KelDiffuseShader));
}

// Does not run Init.
void KelDiffuseShader::Register() {
    KelShader::Register();
    oxsDeclareMember(this, "diffuseColor", diffuseColor);
    oxsDeclareMember(this, "emissiveColor", emissiveColor);
    oxsDeclareMember(this, "texture", textureID);
}

// From 0.3 where the surface is seen edge-on to 1.1 where it faces the viewer.
Oxvoid KelDiffuseShader::Shade(OxState* state) {
    R3 origin, N, D;
    oxsGetHitPosition(state, origin);
    oxsSetRayOrigin(state, origin);
    if (shadeHole(state)) return;
    oxsFindShadingNormal(state, N);
    oxsGetRayDirection(state, D);
    const float f = std::fabs(Dot(D, N)) * 0.8f + 0.3f;
    R3 color = diffuseColor * f + emissiveColor;
    if (textureID != Ox_NOTEXTURE) oxsApplyTexture(state, static_cast<Oxuint>(textureID), color);
    oxsReturnColor(state, color);
}

OX_EXPORT_OBJECT(KelDiffuse, KelDiffuseShader)
