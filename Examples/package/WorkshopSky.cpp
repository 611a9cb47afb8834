// Surroundings of three colours: the zenith's, the horizon's and the ground's, blended by how high one looks.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxShader.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>environment</type>"
    "<package>Workshop</package>"
    "<id>WorkshopSky</id>"
    "<longname>Sky</longname>"
    "<parameter>"
    "<id>zenith</id>"
    "<longname>Zenith</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0.2 0.4 0.8</default>"
    "<help>Seen straight up.</help>"
    "</parameter>"
    "<parameter>"
    "<id>horizon</id>"
    "<longname>Horizon</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0.8 0.9 1</default>"
    "<help>Seen level.</help>"
    "</parameter>"
    "<parameter>"
    "<id>ground</id>"
    "<longname>Ground</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0.2 0.2 0.2</default>"
    "<help>Seen everywhere below the horizon.</help>"
    "</parameter>"
    " </ShaderInfo>";

class WorkshopSky : public OxShader {
public:
    R3 zenith, horizon, ground;

    char* GetShaderInfo() override { return const_cast<char*>(ShaderInfo); }

    void Init() override {
        zenith = R3(0.2f, 0.4f, 0.8f);
        horizon = R3(0.8f, 0.9f, 1.0f);
        ground = R3(0.2f, 0.2f, 0.2f);
    }

    void Register() override {
        Init();
        oxsDeclareMember(this, "zenith", zenith);
        oxsDeclareMember(this, "horizon", horizon);
        oxsDeclareMember(this, "ground", ground);
    }

    Oxvoid Shade(OxState* state) override {
        R3 direction;
        oxsGetRayDirection(state, direction);
        const float height = Normalize(direction).y;
        oxsReturnColor(state, height < 0.0f ? ground : (1.0f - height) * horizon + height * zenith);
    }
};

OX_EXPORT_OBJECT(WorkshopSky, WorkshopSky)
