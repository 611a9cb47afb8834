// A rough diffuse surface, as of chalk or clay: flatter than an even one, since its slopes that face away from the light
// are seen where the light comes from the side.
//
// M. Oren and S. Nayar, "Generalization of Lambert's reflectance model" (1994), the qualitative model.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Shaders/Kel/KelFunctions.h"

#include <algorithm>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Workshop</package>"
    "<id>WorkshopChalk</id>"
    "<longname>Chalk</longname>"
    "<parameter>"
    "<id>diffuseColor</id>"
    "<longname>Diffuse color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0.8 0.8 0.8</default>"
    "<help>The share of the light that the surface reflects.</help>"
    "</parameter>"
    "<parameter>"
    "<id>roughness</id>"
    "<longname>Roughness</longname>"
    "<type>float</type>"
    "<default>20</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>60</upperbound>"
    "<help>Spread of the angles of the surface's small slopes, in degrees; 0 is an even surface.</help>"
    "</parameter>"
    " </ShaderInfo>";

// On Kel's base, so that wireframes and Kel's lights and shadows work: its lights ask the surface for its switches.
class WorkshopChalk : public KelShader {
public:
    R3 diffuseColor;
    float roughness = 0.0f;  // standard deviation, degrees

    char* GetShaderInfo() override { return const_cast<char*>(ShaderInfo); }

    void Init() override {
        KelShader::Init();
        diffuseColor = R3(0.8f, 0.8f, 0.8f);
        roughness = 20.0f;
    }

    void Register() override {
        Init();
        KelShader::Register();
        oxsDeclareMember(this, "diffuseColor", diffuseColor);
        oxsDeclareMember(this, "roughness", roughness);
    }

    void NewFrame() override {
        const float sigma = roughness * 0.0174532925f, variance = sigma * sigma;
        m_a = 1.0f - 0.5f * variance / (variance + 0.33f);
        m_b = 0.45f * variance / (variance + 0.09f);
    }

    Oxvoid Shade(OxState* state) override {
        R3 position, normal, view, sum;
        oxsGetHitPosition(state, position);
        oxsSetRayOrigin(state, position);
        if (shadeHole(state)) return;
        oxsFindShadingNormal(state, normal);
        oxsGetRayDirection(state, view);
        Oxvoid** lights;
        const Oxuint count = oxsGlobalLights(&lights);
        for (Oxuint i = 0; i < count; ++i) {
            OxState shadow;
            if (!kelShadowRay(state, &shadow, normal, lights[i], this)) continue;
            const bool shadows = receiveShadow(state) && kelCastShadow(lights[i]);
            if (shadows && !lightPasses(&shadow, static_cast<OxLight*>(lights[i]))) continue;
            R3 direction, light;
            oxsGetRayDirection(&shadow, direction);
            oxsGetColor(&shadow, light);
            sum += reflected(normal, -view, direction) * light;
        }
        oxsReturnColor(state, diffuseColor * sum);
    }

private:
    float m_a = 1.0f, m_b = 0.0f;  // of the model, made of the roughness

    // The share of the light from `in` that goes to `out`, both unit vectors on the side of unit vector n.
    float reflected(const R3& n, const R3& out, const R3& in) const {
        const float cosOut = std::clamp(Dot(n, out), 1e-4f, 1.0f), cosIn = std::clamp(Dot(n, in), 0.0f, 1.0f);
        // Cosine of the angle between both around the normal, times both sines.
        const float around = std::max(0.0f, Dot(out, in) - cosOut * cosIn);
        return cosIn * (m_a + m_b * around / std::max(cosOut, cosIn));
    }
};

OX_EXPORT_OBJECT(WorkshopChalk, WorkshopChalk)
