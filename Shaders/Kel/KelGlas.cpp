#include "KelGlas.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"

#include <algorithm>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelGlas</id>"
    "<longname>Kel-based glass shader.</longname>"
    "<parameter>"
    "<id>bindex</id>"
    "<longname>index of refraction</longname>"
    "<type>float</type>"
    "<default>1.517</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>10</upperbound>"
    "<help>The refraction index of the surface's material.</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflectivity</id>"
    "<longname>surface's reflectivity</longname>"
    "<type>float</type>"
    "<default>0.1</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1</upperbound>"
    "<help>Reflectivity of the surface.</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflectionFilterAmount</id>"
    "<longname>Reflection Filter Amount</longname>"
    "<type>float</type>"
    "<default>0.0</default>"
    "<lowerbound>0.0</lowerbound>"
    "<upperbound>1.0</upperbound>"
    "<help>The Reflection Filter Amount lets you create a Glas shader that reflects light of one color only. If this "
    "amount is set to a value &gt;0, and Reflection Filter is set to a color different than white, all reflected light "
    "will be filtered with this color.</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflectionFilter</id>"
    "<longname>Reflection Filter</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1.0 1.0 1.0</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>Together with Reflection Filter Amount, this parameter lets you contruct glas that reflects light of only "
    "one color. Set a color different than white to filter the reflected light. Filtering is done by component-wise "
    "multiplication.</help>"
    "</parameter>"
    "<parameter>"
    "<id>refractionFilterAmount</id>"
    "<longname>Refraction Filter Amount</longname>"
    "<type>float</type>"
    "<default>1.0</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1</upperbound>"
    "<help>Together with Refraction Filter, this lets you construct colored glas. Specify an upper bound of how strong "
    "transmitted light will be filtered.</help>"
    "</parameter>"
    "<parameter>"
    "<id>refractionFilter</id>"
    "<longname>Refraction Filter</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>Together with Refraction Filter Amount, this lets you construct colored glas. Specify the color by which "
    "transmissive lights is filtered. Note that the attenuation is volumetric according to 1-e^dist*scale.</help>"
    "</parameter>"
    "<parameter>"
    "<id>refractionFilterScale</id>"
    "<longname>Refraction Filter Scale</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "<lowerbound>0.0001</lowerbound>"
    "<upperbound>1000</upperbound>"
    "<help>This parameter specifies how strong the light is attenuated per unit of distance when using colored glas. "
    "It only has meaning when Refraction Filter Amount is &gt; 0 and Refraction Filter is different from white.</help>"
    "</parameter>"
    "<parameter>"
    "<id>oneSidedGlas</id>"
    "<longname>One Sided Glas</longname>"
    "<type>bool</type>"
    "<default>false</default>"
    "<help>This tweaking parameter is meant to use when you want to render glas with models that have only one layer "
    "of polygons, i.e. do not form a closed body. An infinitely thin layer of glas is assumed to give beleavable "
    "results.</help>"
    "</parameter>"
    " </ShaderInfo>";

char* KelGlasShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelGlasShader::Init() {
    KelShader::Init();
    reflectionFilterAmount = 0.0f;
    reflectionFilter = White;
    refractionFilterAmount = 0.0f;
    refractionFilter = White;
    fresnelBuffer = std::make_unique<FesnelTermBufferTyp1>(1.517f);
    noRefract = 0;
    scale = 1.0f;
    m_bumpMapTexture = Ox_NOTEXTURE;
    bindex = 1.517f;
    shininess = 5.0f;
}

void KelGlasShader::Register() {
    KelShader::Register();
    Init();
    oxsDeclareMember(this, "reflectionFilterAmount", reflectionFilterAmount);
    oxsDeclareMember(this, "reflectionFilter", reflectionFilter);
    oxsDeclareMember(this, "refractionFilterAmount", refractionFilterAmount);
    oxsDeclareMember(this, "refractionFilter", refractionFilter);
    oxsDeclareMember(this, "bindex", bindex);
    oxsDeclareMember(this, "reflectivity", reflectivity);
    oxsDeclareMember(this, "refractionFilterScale", scale);
    oxsDeclareMember(this, "shininess", shininess);
    oxsDeclareMember(this, "oneSidedGlass", noRefract);
    oxsDeclareMember(this, "bumpMap", m_bumpMapTexture);
}

void KelGlasShader::NewFrame() {
    fresnelBuffer->setBIndex(bindex);
    exponent = std::exp(shininess);
}

float KelGlasShader::absorption(float distance) const {
    return (1.0f - std::exp(-distance / scale)) * refractionFilterAmount;
}

static float clampedToUnit(float a) { return std::clamp(a, 0.0f, 1.0f); }

static R3 blend(const R3& from, const R3& to, float way) { return from * (1.0f - way) + to * way; }

// The ray that stays in the body is the one that is absorbed: the refracted ray where a ray enters, the reflected one
// where it is inside.
Oxvoid KelGlasShader::Shade(OxState* state) {
    R3 origin, N, D;
    oxsGetHitPosition(state, origin);
    oxsSetRayOrigin(state, origin);
    if (shadeHole(state)) return;

    const bool inside = kelRecord(state).insideFlag != 0;
    oxsFindShadingBumpMapNormal(state, N, m_bumpMapTexture);
    oxsGetRayDirection(state, D);
    float F = fresnelBuffer->fresnelTerm(Dot(-D, N), inside ? 1 : 0) + reflectivity;
    if (F >= 1.0f) F = 1.0f;
    const float T = 1.0f - F;

    const float expo = glossySurfaces(state) ? exponent : 0.0f;
    const int numSamples = numFuzzySamples(state);
    float refrDist, reflDist;
    R3 refr = kelGetRefractiveIntensity(state, refrDist, T, N, 1.0f, bindex, noRefract == 0, expo, numSamples);
    R3 refl = kelGetReflectiveIntensity(state, reflDist, F, N, 0.0f, inside, 1);
    if (inside) {
        refl = blend(refl, refractionFilter, clampedToUnit(absorption(reflDist)));
    } else {
        refr = blend(refr, refractionFilter, clampedToUnit(absorption(refrDist)));
        refl = blend(refl, reflectionFilter, reflectionFilterAmount);
    }
    oxsReturnColor(state, refr * T + refl * F);
}

// A shadow ray goes straight through; only its colour changes.
bool KelGlasShader::LightTransparency(OxState* state) {
    bool res;
    if (checkWireFrameLightTransparency(state, res)) return res;

    KelRay& record = kelRecord(state);
    KelRayDepthGuard guard(record);
    float t = 1.0f;
    if (record.insideFlag == 0) {
        R3 N, D;
        oxsFindShadingNormal(state, N);
        oxsGetRayDirection(state, D);
        t = clampedToUnit((1.0f - reflectivity) - fresnelBuffer->fresnelTerm(Dot(-D, N), 0));
    }
    R3 color;
    float distance;
    if (!kelLightTransparency(state, color, t, distance)) return false;
    const float a = absorption(distance);
    oxsReturnColor(state, (color * (1.0f - a) + color * refractionFilter * a) * t);
    return true;
}

OX_EXPORT_OBJECT(KelGlass, KelGlasShader)
