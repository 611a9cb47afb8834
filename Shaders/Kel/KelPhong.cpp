#include "KelPhong.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"
#include "Oxbeam/ProgBRDF.h"

#include <algorithm>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelPhong</id>"
    "<longname>Kel-based Phong Shader.</longname>"
    "<parameter>"
    "<id>ambientIntensity</id>"
    "<alias>ambient</alias>"
    "<longname>ambient Intensity</longname>"
    "<type>float</type>"
    "<default>0.1</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1</upperbound>"
    "<help>No description</help>"
    "</parameter>"
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
    "<id>texture</id>"
    "<alias>texture0</alias>"
    "<longname>diffuse Texture</longname>"
    "<type>int</type>"
    "<interpretation><texture/></interpretation>"
    "<default>Ox_NOTEXTURE</default>"
    "<help>The Texture with which the diffuse color is modulated</help>"
    "</parameter>"
    "<parameter>"
    "<id>bumpMap</id>"
    "<longname>BumpMap Texture</longname>"
    "<type>int</type>"
    "<interpretation><texture/></interpretation>"
    "<help>Texture containing informations according to normal perturbation.</help>"
    "</parameter>"
    "<parameter>"
    "<id>specularColor</id>"
    "<alias>specular</alias>"
    "<alias>rs</alias>"
    "<longname>specular Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>The color of the specular highlights.</help>"
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
    "<id>shininess</id>"
    "<longname>shininess</longname>"
    "<type>float</type>"
    "<default>16</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>512</upperbound>"
    "<logarithmic><base>2</base><intermediate>true</intermediate></logarithmic>"
    "<help>Specifies the size of highlights. High shininess gives small, sharp highlights with a polished look, small "
    "shininess gives larger, blurred highlights with a matte look</help>"
    "</parameter>"
    "<parameter>"
    "<id>transparent</id>"
    "<alias>transparency</alias>"
    "<alias>transparentColor</alias>"
    "<longname>transparent Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<help>The color for transparent objects. Black means the object is fully opaque (default). White means it is "
    "fully transparent</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflective</id>"
    "<alias>reflectivity</alias>"
    "<alias>reflectiveColor</alias>"
    "<longname>reflective Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<help>The color for reflective objects, Black means the object is not reflective at all. White means it is a "
    "prefect mirror.</help>"
    "</parameter>"
    " </ShaderInfo>";

char* KelPhongShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

// These defaults are the ones in force; the document advertises others.
void KelPhongShader::Init() {
    KelShader::Init();
    ambientIntensity = 0.2f;
    diffuseColor = White;
    specularColor = emissiveColor = reflectiveColor = transparentColor = Black;
    isReflective = isTransparent = 0.0f;
    shininess = 5.0f;
    texture = m_bumpMapTexture = Ox_NOTEXTURE;
    lights = nullptr;
}

void KelPhongShader::Register() {
    KelShader::Register();
    Init();
    oxsDeclareMember(this, "ambientIntensity", ambientIntensity);
    oxsDeclareMember(this, "diffuseColor", diffuseColor);
    oxsDeclareMember(this, "specularColor", specularColor);
    oxsDeclareMember(this, "texture", texture);
    oxsDeclareMember(this, "bumpMap", m_bumpMapTexture);
    oxsDeclareMember(this, "emissiveColor", emissiveColor);
    oxsDeclareMember(this, "transparent", transparentColor);
    oxsDeclareMember(this, "reflective", reflectiveColor);
    oxsDeclareMember(this, "shininess", shininess);
}

// The bump map must follow the diffuse texture, or bumps and colours drift apart where they repeat.
static void sampleAlike(TextureObject& bumpMap, const TextureObject& diffuse) {
    const auto copy = [&](Oxuint parameter, Oxint from, Oxint to) {
        if (from != to) bumpMap.TexParameteri(OX_GL_TEXTURE_2D, parameter, from);
    };
    copy(OX_GL_TEXTURE_MIN_FILTER, diffuse.filterMode, bumpMap.filterMode);
    copy(OX_GL_TEXTURE_WRAP_S, diffuse.m_wrapS, bumpMap.m_wrapS);
    copy(OX_GL_TEXTURE_WRAP_T, diffuse.m_wrapT, bumpMap.m_wrapT);
}

void KelPhongShader::NewFrame() {
    isReflective = Intensity(reflectiveColor);
    isTransparent = Intensity(transparentColor);
    oxsGlobalLights(lights);
    if (m_bumpMapTexture != Ox_NOTEXTURE && texture != Ox_NOTEXTURE) {
        TextureObject* bumpMap = TextureList::current->ByID(m_bumpMapTexture);
        const TextureObject* diffuse = TextureList::current->ByID(texture);
        if (bumpMap && diffuse) sampleAlike(*bumpMap, *diffuse);
    }
    exponent = std::exp(shininess);
    if (isOpaque()) oxsBlockLight(this, typeid(KelPhongShader));
    expectShadowRays(typeid(KelPhongShader));
}

bool KelPhongShader::isOpaque() const {
    const TextureObject* object = texture == Ox_NOTEXTURE ? nullptr : TextureList::current->ByID(texture);
    return isTransparent <= 0.0f && !(object && object->hasTransparency()) && !mayHaveHoles();
}

Oxvoid KelPhongShader::Shade(OxState* state) {
    R3 shdNormal, origin;
    computeNormal(state, shdNormal);
    oxsGetHitPosition(state, origin);
    oxsSetRayOrigin(state, origin);
    R3 diffuse = diffuseColor;
    Shade(state, diffuse, shdNormal, origin);
}

Oxvoid KelPhongShader::Shade(OxState* state, R3& diffuse, R3& shdNormal, R3&) {
    if (shadeHole(state)) return;

    float alpha = 0.0f;
    bool replaceFragment = false;
    if (texture != Ox_NOTEXTURE) {
        const Oxuint model = oxsGetTextureModel(state, static_cast<Oxuint>(texture));
        replaceFragment = model == OX_GL_REPLACE;
        alpha = applyTexture(state, diffuse, model);
    }

    R3 shadeColor = emissiveColor + ambientIntensity * diffuse;
    if (replaceFragment) shadeColor = getNumLights() == 0 ? diffuse : Black;

    R3 direction;
    oxsGetRayDirection(state, direction);
    Lit lit{diffuse, shdNormal, {}, false, false, replaceFragment};
    oxsReflect(lit.reflectedView, direction, shdNormal);
    lit.testShadows = kelRecord(state).depth < static_cast<Oxuint>(kelRecursionLimit(state)) && receiveShadow(state);
    lit.softShadows = lit.testShadows && softShadows(state) && !fuzzyLights(state);
    OxState shadow;  // one for all lights: what a light does not set anew, it does not read
    for (int i = 0; i < getNumLights(); ++i)
        if (addLight(state, &shadow, getLight(i), lit, shadeColor)) break;

    computeReflectivity(state, shadeColor, shdNormal);
    computeTransparency(state, shadeColor, alpha);
    oxsReturnColor(state, shadeColor);
}

float KelPhongShader::applyTexture(OxState* state, R3& diffuse, Oxuint model) {
    const Oxuint id = static_cast<Oxuint>(texture);
    const TextureObject* object = TextureList::current->ByID(texture);
    if (!object || !object->hasTransparency()) {
        oxsApplyTexture(state, id, diffuse);
        return 0.0f;
    }
    const bool fromTexture = model == OX_GL_REPLACE || model == OX_GL_ADD;
    RGBAFloat fragment(diffuse, fromTexture ? 0.0f : 1.0f);
    oxsApplyTexture(state, id, fragment);
    diffuse = fragment.rgb();
    return 1.0f - fragment.a;
}

bool KelPhongShader::addLight(OxState* state, OxState* shadow, OxLight* light, const Lit& lit, R3& shadeColor) {
    if (!kelShadowRay(state, shadow, lit.shdNormal, light, this)) {
        if (lit.replaceFragment) shadeColor = lit.diffuse;
        return false;
    }
    if (lit.testShadows && kelCastShadow(light) && !lightPasses(shadow, light, lit.softShadows)) return false;
    if (lit.replaceFragment) {
        shadeColor = lit.diffuse;
        return true;
    }

    R3 L, lightColor;
    oxsGetRayDirection(shadow, L);
    oxsGetColor(shadow, lightColor);
    shadeColor += lightColor * lit.diffuse * std::fabs(Dot(L, lit.shdNormal));
    float cosViewLight = Dot(lit.reflectedView, L);
    if (cosViewLight <= 0.0f) cosViewLight = 0.0f;
    shadeColor += lightColor * specularColor * highlight(cosViewLight);
    return false;
}

// The power is taken only where it makes a difference: not off the highlight, and not for a black one, whose power is
// finite in these bounds.
float KelPhongShader::highlight(float cosViewLight) const {
    if (cosViewLight == 0.0f && shininess > 0.0f) return 0.0f;
    if (specularColor == Black && cosViewLight <= 1.1f && shininess >= 0.0f && shininess <= 512.0f) return 0.0f;
    return std::pow(cosViewLight, shininess);
}

// The glossy lobe takes `exponent`, far sharper than the highlight of the same shininess.
Oxvoid KelPhongShader::computeReflectivity(OxState* state, R3& shadeColor, const R3& shdNormal) {
    if (!kelChildMatters(state, isReflective, kelRecord(state).m_ro->m_reflectiveAccuracy)) return;
    const bool glossy = glossySurfaces(state);
    float distance;
    const R3 reflected = kelTraceReflection(state, distance, isReflective, shdNormal, glossy ? exponent : 0.0f, false,
                                            glossy ? numFuzzySamples(state) : 1);
    shadeColor += reflected * reflectiveColor;
}

// A transparent material keeps its whole lit colour; a clear texel takes its share away.
Oxvoid KelPhongShader::computeTransparency(OxState* state, R3& shadeColor, float alpha) {
    const bool fromTexture = !(alpha <= 0.0f);
    if (fromTexture) shadeColor *= 1.0f - alpha;
    const float weight = fromTexture ? alpha : isTransparent;
    if (!kelChildMatters(state, weight, kelRecord(state).m_ro->m_transparentAccuracy)) return;
    const R3 transparent = kelTraceTransparency(state, weight);
    shadeColor += fromTexture ? alpha * transparent : transparent * transparentColor;
}

Oxvoid KelPhongShader::computeNormal(OxState* state, R3& shdNormal) {
    oxsFindShadingBumpMapNormal(state, shdNormal, m_bumpMapTexture);
}

int KelPhongShader::getNumLights() { return lights ? static_cast<int>(lights->size()) : 0; }

OxLight* KelPhongShader::getLight(int i) { return (*lights)[static_cast<unsigned>(i)]; }

// ---- Packets

static R3 worldNormal(const OxState4& state4, unsigned lane) {
    const R3 normal = state4.object[lane]->GetGeometricNormal(state4.hit4->tri[lane]);
    const Instance& instance = *state4.instance[lane];
    return instance.hasXfm ? TransformVector(instance.normalXfm, normal) : normal;
}

Oxvoid KelPhongShader::Shade4(OxState4& state4) {
    ISSEVec4 normal(worldNormal(state4, 0), worldNormal(state4, 1), worldNormal(state4, 2), worldNormal(state4, 3));
    ISSEVec4 origin;
    oxs4NormalizeFaceForward(state4, normal);
    oxsGetHitPosition4(state4, origin);
    oxsSetRayOrigin4(state4, origin);
    ISSEVec4 diffuse(diffuseColor);
    Shade4(state4, diffuse, normal, origin);
}

Oxvoid KelPhongShader::Shade4(OxState4& state4, ISSEVec4& diffuse, ISSEVec4& shdNormal, ISSEVec4& origin) {
    ISSEVec4 color = ISSEVec4(emissiveColor) + ambientIntensity * diffuse;
    ISSEVec4 direction, view;
    oxsGetRayDirection4(state4, direction);
    oxsReflect4(view, direction, shdNormal);
    ISSERay4 ray;
    ISSEIntersection4 hit;
    OxState4 shadow;  // one for all lights
    shadow.intersector = state4.intersector;
    shadow.ray4 = &ray;
    shadow.hit4 = &hit;
    for (int i = 0; i < getNumLights(); ++i) {
        addLight4(shadow, i, diffuse, shdNormal, view, origin, color);
        state4.colors = color;
    }
}

// Lanes that light number i reaches, all bits set. For the first four lights the shadow ray in slot i speaks for the
// whole packet; later ones have no slot, and there each lane's own ray does.
static sse_t unblocked4(OxState4& shadow, unsigned i) {
    ISSEIntersection4& hit = *shadow.hit4;
    std::fill_n(hit.dist, 4, RayInfinity);
    std::fill_n(hit.tri, 4, static_cast<int>(TRI_NONE));
    shadow.intersector->Occluded4(shadow);
    const __m128i tri = i < 4 ? _mm_set1_epi32(hit.tri[i]) : _mm_loadu_si128(reinterpret_cast<const __m128i*>(hit.tri));
    return _mm_castsi128_ps(_mm_cmpeq_epi32(tri, _mm_set1_epi32(TRI_NONE)));
}

void KelPhongShader::addLight4(OxState4& shadow, int i, const ISSEVec4& diffuse, const ISSEVec4& shdNormal,
                               const ISSEVec4& view, ISSEVec4& origin, ISSEVec4& color) {
    OxLight* light = getLight(i);
    ISSERay4& ray = *shadow.ray4;
    ray = ISSERay4();
    if (!oxsIlluminate4(light, shadow, origin, shadow, static_cast<KelShader*>(this))) return;
    const ISSEVec4& L = ray.direction;
    ray.origin = ray.origin + 0.001f * L;
    sse_t lit = _mm_cmpgt_ps(ray.maxDist, _mm_setzero_ps());
    if (_mm_movemask_ps(lit) == 0) return;
    if (kelCastShadow(light) && receiveShadow()) lit = _mm_and_ps(lit, unblocked4(shadow, static_cast<unsigned>(i)));
    if (_mm_movemask_ps(lit) == 0) return;

    const sse_t cosine = _mm_andnot_ps(_mm_set1_ps(-0.0f), Dot(shdNormal, L));
    const sse_t cosViewLight = _mm_max_ps(Dot(view, L), _mm_setzero_ps());
    const sse_t power = _mm_setr_ps(highlight(cosViewLight[0]), highlight(cosViewLight[1]), highlight(cosViewLight[2]),
                                    highlight(cosViewLight[3]));
    const ISSEVec4 added = cosine * diffuse + power * ISSEVec4(specularColor);
    for (unsigned c = 0; c < 3; ++c) color.t[c] = _mm_add_ps(color.t[c], _mm_and_ps(lit, added.t[c]));
}

Oxvoid KelPhongShader::EvalBRDF(ProgBRDF& brdf, OxState&) { brdf.diffuse = diffuseColor; }

bool KelPhongShader::LightTransparency(OxState* state) {
    bool res;
    if (checkWireFrameLightTransparency(state, res)) return res;

    float alpha = isTransparent;
    bool alphaTexture = false;
    const TextureObject* object = texture == Ox_NOTEXTURE ? nullptr : TextureList::current->ByID(texture);
    if (object && object->hasTransparency()) {
        alphaTexture = true;
        alpha = 1.0f - oxsGetTexelAlphaValue(state, static_cast<Oxuint>(texture));
    }
    if (alpha <= 0.0f) return false;

    KelRayDepthGuard guard(kelRecord(state));
    R3 color;
    if (!kelLightTransparency(state, color, alpha)) return false;
    oxsReturnColor(state, alphaTexture ? color * alpha : color * transparentColor);
    return true;
}

OX_EXPORT_OBJECT(KelPhong, KelPhongShader)
