// A square panel that shines to one side, as much less as it is seen at an angle (Lambert's cosine law). Its shadows are soft
// where soft shadows are on.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxLight.h"
#include "Shaders/Kel/Kel.h"
#include "Shaders/Kel/KelLight.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Workshop</package>"
    "<id>WorkshopPanel</id>"
    "<longname>Panel</longname>"
    "<parameter>"
    "<id>position</id>"
    "<longname>Position</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><position/></interpretation>"
    "<default>0 0 0</default>"
    "<help>The middle of the panel.</help>"
    "</parameter>"
    "<parameter>"
    "<id>direction</id>"
    "<longname>Direction</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><direction/></interpretation>"
    "<default>0 -1 0</default>"
    "<help>Where it shines to.</help>"
    "</parameter>"
    "<parameter>"
    "<id>intensity</id>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>Light straight ahead at distance 1; it falls off with the square of the distance.</help>"
    "</parameter>"
    "<parameter>"
    "<id>side</id>"
    "<longname>Side</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>100</upperbound>"
    "<help>Length of the panel's sides.</help>"
    "</parameter>"
    " </ShaderInfo>";

class WorkshopPanel : public OxLight, public KelLight {
public:
    R3 position, direction, intensity;
    float side = 1.0f;

    char* GetShaderInfo() override { return const_cast<char*>(ShaderInfo); }

    void Init() override {
        KelLight::Init();
        position = zeroVector;
        direction = R3(0.0f, -1.0f, 0.0f);
        intensity = White;
        side = 1.0f;
    }

    void Register() override {
        Init();
        oxsDeclareMember(this, "position", position);
        oxsDeclareMember(this, "direction", direction);
        oxsDeclareMember(this, "intensity", intensity);
        oxsDeclareMember(this, "side", side);
        oxsDeclareMember(this, "castShadow", castShadow);
    }

    void NewFrame() override {
        m_ahead = Normalize(direction);
        setFrameAcross(m_ahead, side);
    }

    bool Illuminate(const R3& point, R3& towards, float& distance, R3& light, OxState*, void*) override {
        const R3 way = position - point;
        const float square = Dot(way, way);
        distance = std::sqrt(square);
        towards = way / distance;
        const float cosine = -Dot(towards, m_ahead);
        light = intensity * (cosine / square);
        return cosine > 0.0f;
    }

    // For a soft shadow the ray goes to any point of the panel instead of its middle.
    bool deflectRay(OxState* state) override {
        OxSampler* sampler = static_cast<KelRay*>(oxsGetPrivatePtr(state))->sampler;
        if (!sampler) return false;
        const float right = sampler->nextSample(0) - 0.5f;
        const float up = sampler->nextSample(1) - 0.5f;
        R3 origin;
        oxsGetRayOrigin(state, origin);
        oxsSetRayDirection(state, Normalize(position + right * u + up * v - origin));
        return true;
    }

private:
    R3 m_ahead;  // unit vector
};

OX_EXPORT_OBJECT(WorkshopPanel, WorkshopPanel)
