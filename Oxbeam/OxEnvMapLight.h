// Light from an environment map: the map is split into regions of equal energy, and each region shines as a directional
// light.
#pragma once

#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxSampler.h"

#include <memory>
#include <vector>

// Region of a map; coordinates from 0 to 1.
struct Border {
    float sX = 0.0f, eX = 0.0f;  // start and end
    float sY = 0.0f, eY = 0.0f;
};

// Probability tree over a region.
struct PBTreeNode {
    float probability = 0.0f;
    union {
        PBTreeNode* left;
        Oxuint x;
    };
    union {
        PBTreeNode* right;
        Oxuint y;
    };
};

// One region with the light that stands for it.
class OXBEAM_API EnvElementarLight {
public:
    OxDirectionalLight* m_light;  // owned
    R3 intensity;
    R2 direction2D;          // centre of the region's energy, in map coordinates
    R2 perturbed_direction;  // where the light is taken from in this frame
    Border border;
    PBTreeNode* pbTree;  // unused by the host; not owned
    OxMersenneTwisterSampler m_sampler;

    explicit EnvElementarLight(OxDirectionalLight* light);
    virtual ~EnvElementarLight();
    EnvElementarLight(const EnvElementarLight&) = delete;
    EnvElementarLight& operator=(const EnvElementarLight&) = delete;
};

// The map is a mirrored ball seen from afar, as an angular map: the middle of the picture looks along one axis, and the
// distance from it is the angle to that axis, up to half a turn at the rim of the inscribed circle (P. Debevec,
// "Rendering synthetic objects into real scenes", 1998). The split follows P. Debevec, "A median cut algorithm for light
// probe sampling" (2005). The lights' intensities add up to the map's energy.
class OXBEAM_API OxEnvMapLight : public OxLight {
public:
    R3 intensity{1.0f, 1.0f, 1.0f};  // factor on the map

    OxEnvMapLight();
    ~OxEnvMapLight() override;

    // Splits the map again if anything has changed, and adds the elementary lights to the frame's.
    void NewFrame() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;

    void setNumLights(int count);  // less than 1: none
    void setTextureId(int id);     // -1: none
    int textureId() const { return m_textureId; }
    void setUpDirection(unsigned axis);  // 0 x, 1 y, 2 z; others as 0
    const std::vector<std::unique_ptr<EnvElementarLight>>& elementaryLights() const { return m_lights; }

protected:
    // Makes one elementary light; the caller owns it.
    virtual EnvElementarLight* getNewElementarLight();

private:
    struct Settings {
        int textureId = -1;
        int numLights = 0;
        Oxuint upDirection = 1;
        R3 intensity;

        bool operator==(const Settings&) const = default;
    };

    void split();

    Oxint m_textureId = -1;
    Oxint m_numLights = 16;
    Oxuint m_upDirection = 1;
    Settings m_splitFor;  // what the lights were made for
    std::vector<std::unique_ptr<EnvElementarLight>> m_lights;
    std::vector<R3> m_directions;  // theirs, as each frame begins with them
};
