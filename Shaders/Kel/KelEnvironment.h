// Environment from a photograph of a mirrored ball (an angular map): seen by chosen kinds of rays, lighting the scene,
// and receiving the scene's shadows on a plane that is not there.
//
// P. Debevec, "Rendering synthetic objects into real scenes" (1998).
#pragma once

#include "KelEnvMapLight.h"
#include "KelShader.h"
#include "Primitives/Vec.h"

#include <memory>

class KelEnvironmentShader : public KelShader {
public:
    Color color = Black;             // where the map is not seen
    R3 intensity{1.0f, 1.0f, 1.0f};  // of the light that the map casts
    Oxint textureid = -1;            // the map; negative: none
    Oxuint upDirection = 1;          // 0 x, 1 y, 2 z
    Oxuint visiblePrimary = 1;       // kinds of rays that see the map
    Oxuint visibleReflections = 1;
    Oxuint visibleRefractions = 1;
    Oxuint visibleTransparent = 1;
    Oxuint visibleMask = 0;                            // the same as ray kinds; derived each frame
    Oxint m_envLights = -1;                            // lights that the map is turned into; negative: none
    std::unique_ptr<KelEnvMapLight> m_envLightShader;  // made when it is first wanted
    R3 shadowPlaneOrigin;
    R3 shadowPlaneNormal{0.0f, 1.0f, 0.0f};
    Oxint showShadowPlane = 0;     // unused
    float shadowIntensity = 0.5f;  // darkness of the shadows on the plane
    Oxuint vIndex[3] = {};         // components of a direction that feed the map's coordinates and its polar axis
    float sIndex[3] = {};          // and their signs
    float scale = 1.0f;            // of the map's brightness as it is seen

    KelEnvironmentShader();

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    Oxvoid Shade(OxState* state) override;
    // Four rays at once, for previews: the map with the z axis as its pole, whatever the up direction, for all kinds of
    // rays, without the shadow plane. Without a map the packet's colours are left alone.
    Oxvoid Shade4(OxState4& state4) override;

    // Keeps the environment-map light up to date, where one is wanted.
    virtual void checkEnvLighting();

private:
    // Light that falls on a point of the plane: as it would, and as it does.
    struct PlaneLight {
        R3 unoccluded = White, arriving = White;
        bool any = false, shadowed = false;
    };

    void updateIndex();
    R3 shadowed(OxState* state, const R3& seen);
    void addPlaneLight(OxState* state, OxState* shadow, const R3& X, const R3& N, OxLight* light, PlaneLight& sum);
};
