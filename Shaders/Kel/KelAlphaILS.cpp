#include "KelAlphaILS.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"

#include <cstdlib>
#include <iostream>
#include <vector>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelAlphaILS</id>"
    "<longname>Kel-based interleaved light source sampling surface shader</longname>"
    "<parameter>"
    "<id>ambientIntensity</id>"
    "<longname>ambient Intensity</longname>"
    "<type>float</type>"
    "<default>0.1</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1</upperbound>"
    "<help>No description</help>"
    "</parameter>"
    "<parameter>"
    "<id>diffuseColor</id>"
    "<alias>rd</alias>"
    "<longname>diffuse Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>The color of the diffuse component of the material.</help>"
    "</parameter>"
    "<parameter>"
    "<id>specularColor</id>"
    "<alias>rs</alias>"
    "<longname>specular Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>The color of the specular highlights.</help>"
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
    "<id>emissiveColor</id>"
    "<longname>Emissive Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>Emissive color.</help>"
    "</parameter>"
    "<parameter>"
    "<id>reflective</id>"
    "<longname>Reflective Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>The color for reflective objects, Black means the object is not reflective at all. White means it is a "
    "prefect mirror.</help>"
    "</parameter>"
    "<parameter>"
    "<id>shininess</id>"
    "<longname>shininess</longname>"
    "<type>float</type>"
    "<default>16</default>"
    "<lowerbound>1</lowerbound>"
    "<upperbound>512</upperbound>"
    "<logarithmic><base>2</base></logarithmic>"
    "<help>Specifies the size of highlights. High shininess gives small, sharp highlights with a polished look, small "
    "shininess gives larger, blurred highlights with a matte look</help>"
    "</parameter>"
    "<parameter>"
    "<id>samples</id>"
    "<longname>Samples</longname>"
    "<type>int</type>"
    "<default>4</default>"
    "<help></help>"
    "</parameter>"
    " </ShaderInfo>";

std::atomic<int> KelAlphaILS::globalNumSamples{4};

KelAlphaILS::~KelAlphaILS() = default;

char* KelAlphaILS::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelAlphaILS::Init() {
    KelShader::Init();
    ambientIntensity = 0.2f;
    diffuseColor = specularColor = White;
    emissiveColor = reflectiveColor = Black;
    exponent = 64.0f;
    texture = Ox_NOTEXTURE;
    isReflective = 0.0f;
    light = nullptr;
    lights = 0;
    samples = oldSamples = 4;
}

// The base's parameters cannot be set on this shader.
void KelAlphaILS::Register() {
    Init();
    oxsDeclareMember(this, "ambientIntensity", ambientIntensity);
    oxsDeclareMember(this, "diffuseColor", diffuseColor);
    oxsDeclareMember(this, "rd", diffuseColor);
    oxsDeclareMember(this, "specularColor", specularColor);
    oxsDeclareMember(this, "rs", specularColor);
    oxsDeclareMember(this, "texture", texture);
    oxsDeclareMember(this, "texture0", texture);
    oxsDeclareMember(this, "emissiveColor", emissiveColor);
    oxsDeclareMember(this, "reflective", reflectiveColor);
    oxsDeclareMember(this, "shininess", exponent);
    oxsDeclareMember(this, "samples", samples);
}

void KelAlphaILS::NewFrame() {
    if (samples != oldSamples) {
        std::cout << "setting global num samles to " << samples << std::endl;
        oldSamples = samples;
        globalNumSamples = samples;
    }
    isReflective = Intensity(reflectiveColor);
}

// The order in which passes visit the lights 1 to count; light 0 serves the preview. Made once in a process, for the
// lights that there are then.
static const std::vector<Oxuint>& lightOrder(Oxuint count) {
    static const std::vector<Oxuint>& order = [](Oxuint n) -> const std::vector<Oxuint>& {
        srand(3);
        auto& made = *new std::vector<Oxuint>(n);
        for (Oxuint i = 0; i < n; ++i) made[i] = i + 1;
        for (Oxuint i = n - 1; i >= 1; --i) std::swap(made[i], made[static_cast<Oxuint>(drand48() * i)]);
        return made;
    }(count);
    return order;
}

Oxvoid KelAlphaILS::Shade(OxState* state) {
    const Oxuint numLights = refreshLights();
    Surface surface;
    surface.color = diffuseColor;
    if (oxsHasVertexColors(state))
        oxsInterpolateColor(state, surface.color);
    else
        oxsApplyTexture(state, static_cast<Oxuint>(texture), surface.color);
    R3 S = ambientIntensity * surface.color + emissiveColor;
    oxsFindShadingNormal(state, surface.normal);
    oxsGetHitPosition(state, surface.position);
    oxsSetRayOrigin(state, surface.position);
    const float alpha = texture >= 0 ? oxsGetTexelAlphaValue(state, static_cast<Oxuint>(texture)) : 1.0f;
    if (alpha > 0.02f && numLights != 0) S += sampleLights(state, surface, numLights);

    float distance;
    S += reflectiveColor * kelGetReflectiveIntensity(state, distance, isReflective, surface.normal, 0.0f, false, 1);
    if (texture >= 0) {
        const float t = 1.0f - alpha;
        S = S * alpha + t * kelGetTransparentIntensity(state, t);
    }
    oxsReturnColor(state, S);
}

// All threads write the same values.
Oxuint KelAlphaILS::refreshLights() {
    Oxvoid** handles = nullptr;
    const Oxuint count = oxsGlobalLights(&handles);
    std::atomic_ref(light).store(handles, std::memory_order_relaxed);
    std::atomic_ref(lights).store(count, std::memory_order_relaxed);
    return count;
}

R3 KelAlphaILS::sampleLights(OxState* state, const Surface& surface, Oxuint count) {
    Oxvoid** handles = std::atomic_ref(light).load(std::memory_order_relaxed);
    const Oxuint choices = count - 1;
    std::atomic_ref(lights).store(choices, std::memory_order_relaxed);
    const Oxuint pass = oxGetSampleIndex();
    const int wanted = globalNumSamples.load(std::memory_order_relaxed);
    const std::vector<Oxuint>* order = choices > 0 ? &lightOrder(choices) : nullptr;
    if (pass == 0 && wanted < 8) return evaluateLight(state, surface, handles[0], static_cast<float>(choices));
    if (!order) return Black;
    const auto n = static_cast<Oxuint>(wanted);
    const float weight = static_cast<float>(choices) * (1.0f / static_cast<float>(wanted));
    R3 sum = Black;
    for (int k = 0; k < wanted; ++k) {
        // The order may be of another frame's lights.
        const Oxuint chosen = (*order)[(pass * n + static_cast<Oxuint>(k)) % choices % order->size()];
        if (chosen <= choices) sum += evaluateLight(state, surface, handles[chosen], weight);
    }
    return sum;
}

// `weight`: how many lights this one stands for.
R3 KelAlphaILS::evaluateLight(OxState* state, const Surface& surface, Oxvoid* handle, float weight) {
    auto* chosen = static_cast<OxLight*>(handle);
    OxState child;
    kelInitState(state, &child);
    R3 P = surface.position, L, E;
    if (!oxsIlluminate(handle, &child, P, &child, static_cast<KelShader*>(this))) return Black;
    oxsGetRayDirection(&child, L);
    if (!(Dot(surface.normal, L) > 0.0f)) return Black;
    R3 origin;
    oxsGetRayOrigin(&child, origin);
    origin += static_cast<float>(kelRayEpsilon(state)) * L;
    oxsSetRay(&child, origin, L, oxsGetRayMaxDistance(&child));
    oxsSetRayVisibility(&child, RAY_SHADOW);
    if (kelCastShadow(handle) && receiveShadow(state) && !lightPasses(&child, chosen)) oxsReturnColor(&child, Black);

    oxsGetRayDirection(&child, L);
    oxsGetColor(&child, E);
    E *= static_cast<float>(static_cast<double>(weight) * 0.002);
    R3 D, R;
    oxsGetRayDirection(state, D);
    oxsReflect(R, D, surface.normal);
    const float highlight = std::pow(std::max(Dot(R, L), 0.0f), exponent);
    return surface.color * E * std::fabs(Dot(surface.normal, L)) + specularColor * E * highlight;
}

bool KelAlphaILS::LightTransparency(OxState* state) {
    if (texture < 0) return false;
    const float t = 1.0f - oxsGetTexelAlphaValue(state, static_cast<Oxuint>(texture));
    KelRayDepthGuard guard(kelRecord(state));
    R3 color;
    if (!kelLightTransparency(state, color, t)) return false;
    oxsReturnColor(state, color * t);
    return true;
}

OX_EXPORT_OBJECT(KelAlphaILS, KelAlphaILS)
