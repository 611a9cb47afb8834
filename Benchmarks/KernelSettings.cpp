#include "Benchmarks/KernelSettings.h"

#include "Benchmarks/BareRay.h"
#include "Engine/System/System.h"
#include "Oxbeam/ABSP.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

namespace oxbeam::bench {

namespace {

void setLane(RTCRayHit8& query, unsigned lane, const TracedRay& ray) {
    query.ray.org_x[lane] = ray.origin.x, query.ray.org_y[lane] = ray.origin.y, query.ray.org_z[lane] = ray.origin.z;
    query.ray.dir_x[lane] = ray.direction.x, query.ray.dir_y[lane] = ray.direction.y;
    query.ray.dir_z[lane] = ray.direction.z;
    query.ray.tnear[lane] = ray.tnear, query.ray.tfar[lane] = ray.tfar;
    query.ray.time[lane] = 0.0f;
    query.ray.mask[lane] = ray.kind;
    query.ray.id[lane] = query.ray.flags[lane] = 0;
    query.hit.geomID[lane] = query.hit.instID[0][lane] = RTC_INVALID_GEOMETRY_ID;
}

// A structure of its own over the meshes of a scene.
class Kernel {
public:
    Kernel(const ::Scene& scene, const std::string& isa, RTCSceneFlags flags)
        : m_device(rtcNewDevice(("ignore_config_files=1,isa=" + isa).c_str())), m_scene(rtcNewScene(m_device)) {
        rtcSetSceneFlags(m_scene, flags);
        for (const Instance* instance : scene.instances) {
            if (instance->hasXfm) throw std::logic_error("a placed mesh");
            attach(static_cast<const ABSP&>(*scene.objects[instance->object]));
        }
        rtcCommitScene(m_scene);
    }
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;
    ~Kernel() {
        rtcReleaseScene(m_scene);
        rtcReleaseDevice(m_device);
    }

    void traceSingly(const std::vector<TracedRay>& rays) const {
        for (const TracedRay& ray : rays) trace(ray);
    }

    // A run of eight primary rays, as they come row by row, is one query.
    void traceInPackets(const std::vector<TracedRay>& rays) const {
        const auto primary = [](const TracedRay& ray) { return ray.kind == RAY_PRIMARY; };
        for (auto ray = rays.begin(); ray != rays.end();) {
            if (rays.end() - ray >= 8 && std::all_of(ray, ray + 8, primary)) {
                tracePacket(&*ray);
                ray += 8;
            } else {
                trace(*ray++);
            }
        }
    }

private:
    void attach(const ABSP& mesh) {
        RTCGeometry geometry = rtcNewGeometry(m_device, RTC_GEOMETRY_TYPE_TRIANGLE);
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mesh.positions.data(), 0,
                                   sizeof(R3), mesh.vertexCount);
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mesh.indices.data(), 0,
                                   3 * sizeof(Oxuint), mesh.triangleCount());
        rtcSetGeometryMask(geometry, RAY_ALL);
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(m_scene, geometry);
        rtcReleaseGeometry(geometry);
    }

    void trace(const TracedRay& ray) const {
        RTCRayHit query = queryOf(ray);
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcIntersect1(m_scene, &context, &query);
    }

    void tracePacket(const TracedRay* rays) const {
        alignas(32) static constexpr int all[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
        RTCRayHit8 query;
        for (unsigned lane = 0; lane < 8; ++lane) setLane(query, lane, rays[lane]);
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
        rtcIntersect8(all, m_scene, &context, &query);
    }

    RTCDevice m_device;
    RTCScene m_scene;
};

struct Setting {
    std::string name;
    std::shared_ptr<const Kernel> kernel;
    bool packets;
    std::vector<double> times, shares;
};

std::vector<Setting> settingsFor(const ::Scene& scene) {
    std::vector<Setting> settings;
    const std::vector<std::string> has = processor().isas;
    for (const std::string isa : {"avx", "avx2", "avx512"}) {
        if (std::count(has.begin(), has.end(), isa) == 0) continue;
        for (const bool robust : {true, false}) {
            const auto kernel =
                std::make_shared<const Kernel>(scene, isa, robust ? RTC_SCENE_FLAG_ROBUST : RTC_SCENE_FLAG_NONE);
            for (const bool packets : {false, true})
                settings.push_back({isa + (robust ? " robust" : " fast") + (packets ? " packets" : " single"),
                                    kernel,
                                    packets,
                                    {},
                                    {}});
        }
    }
    return settings;
}

}  // namespace

Json kernelSettings(const ::Scene& scene, const Recording& recording, unsigned turns) {
    std::vector<Setting> settings = settingsFor(scene);
    for (unsigned turn = 0; turn < turns; ++turn)
        for (Setting& setting : settings) {
            setting.times.push_back(seconds([&] {
                if (setting.packets)
                    setting.kernel->traceInPackets(recording.rays);
                else
                    setting.kernel->traceSingly(recording.rays);
            }));
            setting.shares.push_back(setting.times.back() / settings[0].times.back());
        }
    Json json;
    for (const Setting& setting : settings)
        json[setting.name] = {{"s", median(setting.times)}, {"ratio", median(setting.shares)}};
    return json;
}

}  // namespace oxbeam::bench
