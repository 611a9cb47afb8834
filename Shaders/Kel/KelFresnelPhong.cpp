#include "KelFresnelPhong.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelFresnelPhong</id>"
    "<longname>Car Paint</longname>"
    "<parameter>"
    "<id>ambientIntensity</id>"
    "<longname>Ambient Intensity</longname>"
    "<type>float</type>"
    "<default>0.2</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1</upperbound>"
    "<help>This parameter specifies the amount of illumination in full shadow. The paramter is used to simulate "
    "diffuse illumination.</help>"
    "</parameter>"
    "<parameter>"
    "<id>diffuseColor</id>"
    "<longname>Diffuse Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>This is the base color for the object.</help>"
    "</parameter>"
    "<parameter>"
    "<id>emissiveColor</id>"
    "<longname>Emissive Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<help>This is the emitted color for the object.</help>"
    "</parameter>"
    "<parameter>"
    "<id>specularColor</id>"
    "<longname>Specular Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>This is the color of the specular highlights.</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflective</id>"
    "<longname>Reflective Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>This specifies a color for reflections on the object. If set to \"black\", the object is not "
    "reflective.</help>"
    "</parameter>"
    "<parameter>"
    "<id>shininess</id>"
    "<longname>Shininess</longname>"
    "<type>float</type>"
    "<default>64</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>512</upperbound>"
    "<logarithmic><base>2</base><intermediate>true</intermediate></logarithmic>"
    "<help>This specifies, how glossy the surface is. The higher the value, the sharper and smaller the highlights, "
    "the smoother the surface.</help>"
    "</parameter>"
    "<parameter>"
    "<id>texture</id>"
    "<alias>texture0</alias>"
    "<longname>diffuse Texture</longname>"
    "<type>int</type>"
    "<interpretation><texture/></interpretation>"
    "<help>The Texture with which the diffuse color is modulated</help>"
    "</parameter>"
    "<parameter>"
    "<id>fresnelMethod</id>"
    "<longname>Fresnel Method</longname>"
    "<type>int</type>"
    "<interpretation><enum> "
    "<item><key>1</key><value>Method1</value></item>"
    "<item><key>2</key><value>Method2</value></item>"
    "<item><key>3</key><value>Method3</value></item>"
    "</enum></interpretation>"
    "<default>1</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>3</upperbound>"
    "</parameter>"
    "<parameter>"
    "<id>bindex</id>"
    "<longname>index of refraction</longname>"
    "<type>float</type>"
    "<default>1.2</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>10</upperbound>"
    "<help>The refraction index of the surface's material.</help>"
    "</parameter>"
    "<parameter>"
    "<id>bias</id>"
    "<longname>Bias</longname>"
    "<type>float</type>"
    "<default>0.000</default>"
    "<lowerbound>-1</lowerbound>"
    "<upperbound>1</upperbound>"
    "</parameter>"
    "<parameter>"
    "<id>scale</id>"
    "<longname>Scale amount</longname>"
    "<type>float</type>"
    "<default>1.0</default>"
    "<lowerbound>1.0</lowerbound>"
    "<upperbound>10</upperbound>"
    "<help>Scale parameter for fresnel method 3</help>"
    "</parameter>"
    "<parameter>"
    "<id>index</id>"
    "<longname>Index</longname>"
    "<type>float</type>"
    "<default>1.000</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>10</upperbound>"
    "</parameter>"
    " </ShaderInfo>";

char* KelFresnelPhongShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelFresnelPhongShader::Init() {
    KelPhongShader::Init();
    fresnelMethod = 1;
    fresnelMethodSik = -1;
    bindex = 1.5f;
    fresnelBuffer = nullptr;
    bias = 0.1f;
    scale = 1.0f;
    index = 5.0f;
    initFresnelTable();
}

void KelFresnelPhongShader::Register() {
    KelPhongShader::Register();
    oxsDeclareMember(this, "fresnelMethod", fresnelMethod);
    oxsDeclareMember(this, "bindex", bindex);
    oxsDeclareMember(this, "bias", bias);
    oxsDeclareMember(this, "scale", scale);
    oxsDeclareMember(this, "index", index);
}

void KelFresnelPhongShader::initFresnelTable() {
    if (fresnelMethod == fresnelMethodSik) return;
    fresnelMethodSik = fresnelMethod;
    fresnelBuffer = nullptr;
    switch (fresnelMethod) {
    case 1: fresnelBuffer = std::make_unique<FesnelTermBufferTyp1>(bindex); break;
    case 2: fresnelBuffer = std::make_unique<FesnelTermBufferTyp2>(bindex); break;
    case 3: fresnelBuffer = std::make_unique<FesnelTermBufferTyp3>(bindex, bias, scale, index); break;
    default: break;
    }
}

void KelFresnelPhongShader::NewFrame() {
    KelPhongShader::NewFrame();
    if (isOpaque()) oxsBlockLight(this, typeid(KelFresnelPhongShader));
    expectShadowRays(typeid(KelFresnelPhongShader));
    if (fresnelMethod != fresnelMethodSik)
        initFresnelTable();
    else if (fresnelMethod == 1 || fresnelMethod == 2)
        fresnelBuffer->setBIndex(bindex);
    else if (fresnelMethod == 3)
        static_cast<FesnelTermBufferTyp3&>(*fresnelBuffer).setApproxBIndex(bindex, bias, scale, index);
}

// A term that vanishes is marked in red: the table does not suit the surface.
Oxvoid KelFresnelPhongShader::computeReflectivity(OxState* state, R3& shadeColor, const R3& shdNormal) {
    if (!fresnelBuffer) return;
    R3 D;
    oxsGetRayDirection(state, D);
    const float F = fresnelBuffer->fresnelTerm(Dot(-D, shdNormal), 0);
    float distance;
    const R3 R = kelGetReflectiveIntensity(state, distance, F, shdNormal, 0.0f, false, 1);
    shadeColor = shadeColor * (1.0f - F) + R * reflectiveColor * F;
    if (F < 0.000000001f) shadeColor = Red;
}

OX_EXPORT_OBJECT(KelFresnelPhong, KelFresnelPhongShader)
OX_EXPORT_ALIAS(KelCarPaint, KelFresnelPhongShader, KelFresnelPhong)
