#include "Engine/Scene/EmbreeIntersector.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Interruption.h"
#include "Oxbeam/ABSP.h"

#include <embree3/rtcore.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace oxbeam {

// Embree ends the process on rays that are not finite, or beyond what it can square.
static constexpr float FarthestOut = 1.8e18f;

static void check(RTCDevice device) {
    switch (rtcGetDeviceError(device)) {
    case RTC_ERROR_NONE: return;
    case RTC_ERROR_CANCELLED: throw Interruption("stopped while the structure for rays was built");
    case RTC_ERROR_OUT_OF_MEMORY: throw Error(ExitStatus::InputOutput, "not enough memory to build the scene");
    case RTC_ERROR_UNSUPPORTED_CPU:
        throw Error(ExitStatus::Usage, "this processor lacks the instruction set asked for");
    // What it throws when it cannot have a thread or the like; geometry is checked before it sees any.
    case RTC_ERROR_UNKNOWN: throw Error(ExitStatus::InputOutput, "the ray tracing kernel cannot work on this machine");
    default: throw Error(ExitStatus::BadScene, "the ray tracing kernel refused the scene");
    }
}

// One for each instruction set, as long as the process lives. Where the scheduler could not get all its threads, letting
// go of a device waits for them for ever, also while an exception is on its way out.
EmbreeDevice& EmbreeDevice::of(const std::string& isa) {
    static std::mutex mutex;
    static auto& devices = *new std::map<std::string, EmbreeDevice>();
    const std::scoped_lock lock(mutex);
    EmbreeDevice& device = devices[isa];
    if (device.handle) return device;
#ifdef OXBEAM_PLAIN_THREADS
    const char* threads =
        ",threads=1";  // Embree's own threads are the scheduler's, which the thread sanitizer misreads
#else
    const char* threads = "";
#endif
    // Nor does a file in the user's home change pictures.
    RTCDevice made = rtcNewDevice(fmt::format("ignore_config_files=1,isa={}{}", isa, threads).c_str());
    check(made);
    if (!made) throw Error(ExitStatus::InputOutput, "the ray tracing kernel cannot be started on this machine");
    const auto count = [](void* bytes, ssize_t change, bool) {
        *static_cast<std::atomic<ssize_t>*>(bytes) += change;
        return true;
    };
    rtcSetDeviceMemoryMonitorFunction(made, count, &device.bytes);
    device.handle = made;
    return device;
}

std::string embreeVersion() {
    RTCDevice device = rtcNewDevice("threads=1");
    const auto part = [&](RTCDeviceProperty property) { return rtcGetDeviceProperty(device, property); };
    std::string version = fmt::format("{}.{}.{}", part(RTC_DEVICE_PROPERTY_VERSION_MAJOR),
                                      part(RTC_DEVICE_PROPERTY_VERSION_MINOR), part(RTC_DEVICE_PROPERTY_VERSION_PATCH));
    rtcReleaseDevice(device);
    return version;
}

EmbreeIntersector::EmbreeIntersector(const std::string& isa) {
    static const std::vector<std::string> known = {"sse2", "sse4.2", "avx", "avx2", "avx512"};
    if (!std::count(known.begin(), known.end(), isa))
        throw Error(ExitStatus::Usage,
                    fmt::format("unknown instruction set '{}'; expected one of {}", isa, fmt::join(known, ", ")));
    m_device = &EmbreeDevice::of(isa);
    m_bytesBefore = m_device->bytes;
}

EmbreeIntersector::~EmbreeIntersector() {
    for (RTCGeometry geometry : m_geometries)
        if (geometry) rtcReleaseGeometry(geometry);
    for (RTCScene scene : m_objectScenes)
        if (scene) rtcReleaseScene(scene);
    if (m_root) rtcReleaseScene(m_root);
    if (m_whole) rtcReleaseScene(m_whole);
}

std::string EmbreeIntersector::defaultIsa() {
    if (__builtin_cpu_supports("avx")) return "avx";
    return __builtin_cpu_supports("sse4.2") ? "sse4.2" : "sse2";
}

// Vertices and indices are shared with the mesh, which outlives the structure.
RTCGeometry EmbreeIntersector::newMesh(const ABSP& mesh) const {
    RTCGeometry geometry = rtcNewGeometry(m_device->handle, RTC_GEOMETRY_TYPE_TRIANGLE);
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mesh.positions.data(), 0,
                               sizeof(R3), mesh.vertexCount);
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mesh.indices.data(), 0,
                               3 * sizeof(Oxuint), mesh.triangleCount());
    rtcSetGeometryMask(geometry, RAY_ALL);
    return geometry;
}

// Watertight along shared edges: otherwise some rays in a million slip through a closed mesh.
RTCScene EmbreeIntersector::newScene() {
    RTCScene scene = rtcNewScene(m_device->handle);
    rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);
    const auto goesOn = [](void* self, double) {
        const std::atomic<bool>* stop = static_cast<const EmbreeIntersector*>(self)->m_stop;
        return !stop || !*stop;
    };
    rtcSetSceneProgressMonitorFunction(scene, goesOn, this);
    return scene;
}

void EmbreeIntersector::commitScene(RTCScene scene) const {
    rtcCommitScene(scene);
    check(m_device->handle);
}

// Known once it is whole.
RTCScene EmbreeIntersector::objectScene(unsigned object) {
    if (m_objectScenes[object]) return m_objectScenes[object];
    RTCScene scene = newScene();
    RTCGeometry geometry = newMesh(static_cast<const ABSP&>(*m_scene->objects[object]));
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    try {
        commitScene(scene);
    } catch (...) {
        rtcReleaseScene(scene);
        throw;
    }
    return m_objectScenes[object] = scene;
}

void EmbreeIntersector::attach(unsigned number, bool inWhole) {
    m_geometries.push_back(nullptr);
    m_apart.push_back(false);
    if (!m_scene->instances[number] || (inWhole && m_scene->instances[number]->hasXfm)) return;
    const Instance& instance = *m_scene->instances[number];
    RTCGeometry geometry;
    if (instance.hasXfm) {
        RTCScene object = objectScene(instance.object);
        geometry = rtcNewGeometry(m_device->handle, RTC_GEOMETRY_TYPE_INSTANCE);
        rtcSetGeometryInstancedScene(geometry, object);
    } else {
        geometry = newMesh(static_cast<const ABSP&>(*m_scene->objects[instance.object]));
        m_inWhole[instance.object] = true;
    }
    rtcSetGeometryMask(geometry, instance.visibilityMask);
    rtcAttachGeometryByID(m_root, geometry, number);
    m_geometries.back() = geometry;
}

// By how much a transformation's inverse can lengthen a vector; infinity where it has none.
static double inverseStretch(const Matrix& matrix) {
    double largest = 0.0;
    const double determinant = std::fabs(static_cast<double>(Determinant(matrix)));
    for (const auto& row : CofactorMatrix(matrix).m)
        for (int j = 0; j < 3; ++j) largest = std::max(largest, std::fabs(static_cast<double>(row[j])));
    const double stretch = 3.0 * largest / determinant;
    return std::isfinite(stretch) ? stretch : std::numeric_limits<double>::infinity();
}

// The kernel inverts in single precision. Where the determinant is what rounding left of terms that cancel, as of a thing
// that was turned, flattened and turned again, that makes rays of no numbers at all, which end the process.
static bool invertsWell(const Matrix& matrix) {
    double determinant = 0.0, size = 0.0;
    for (int j = 0; j < 3; ++j)
        for (int k = 1; k < 3; ++k) {
            const double term = double{matrix.m[0][j]} * matrix.m[1][(j + k) % 3] * matrix.m[2][(j + 3 - k) % 3];
            determinant += k == 1 ? term : -term;
            size += std::fabs(term);
        }
    return std::fabs(determinant) > 0x1p-14 * size;
}

bool EmbreeIntersector::canInstance(const Matrix& matrix) {
    constexpr double most = 1e9;
    bool near = true;
    for (const auto& row : matrix.m) near = near && std::fabs(row[3]) <= FarthestOut / most;
    return near && invertsWell(matrix) && inverseStretch(matrix) <= most;
}

// Rays are turned back into the space of an instance's mesh, and must be traceable there too.
void EmbreeIntersector::place(unsigned number) {
    const Instance& instance = *m_scene->instances[number];
    RTCGeometry geometry = m_geometries[number];
    if (!instance.hasXfm) return;
    if (!canInstance(instance.meshToWorldXfm)) return rtcDisableGeometry(geometry);
    rtcEnableGeometry(geometry);
    rtcSetGeometryTransform(geometry, 0, RTC_FORMAT_FLOAT3X4_ROW_MAJOR, &instance.meshToWorldXfm.m[0][0]);
    const double stretch = 4.0 * inverseStretch(instance.meshToWorldXfm);
    m_farthestOut = std::min(m_farthestOut, static_cast<float>(FarthestOut / std::max(stretch, 1.0)));
}

Bounds EmbreeIntersector::build(const Scene& scene, bool twoLevels, const std::atomic<bool>* stop) {
    m_scene = &scene;
    m_stop = stop;
    m_root = newScene();
    m_objectScenes.resize(scene.objects.size());
    m_inWhole.resize(scene.objects.size());
    for (unsigned i = 0; i < scene.instances.size(); ++i) attach(i, twoLevels);
    if (twoLevels) {
        commit();
        divide();
    }
    commit();
    m_stop = nullptr;

    RTCBounds b;
    rtcGetSceneBounds(m_root, &b);
    Bounds bounds;
    bounds.lower = R3(b.lower_x, b.lower_y, b.lower_z);
    bounds.upper = R3(b.upper_x, b.upper_y, b.upper_z);
    bounds.empty = !(b.lower_x <= b.upper_x && b.lower_y <= b.upper_y && b.lower_z <= b.upper_z);
    return bounds;
}

// ---- Changes

void EmbreeIntersector::commit() {
    m_instances = m_scene->instances.data();
    m_farthestOut = FarthestOut;
    for (unsigned i = 0; i < m_geometries.size(); ++i) {
        if (!m_geometries[i] || (m_whole && !m_apart[i])) continue;
        place(i);
        rtcCommitGeometry(m_geometries[i]);
    }
    commitScene(m_root);
}

void EmbreeIntersector::attachApart(unsigned number) {
    const Instance& instance = *m_scene->instances[number];
    RTCGeometry geometry = rtcNewGeometry(m_device->handle, RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(geometry, objectScene(instance.object));
    rtcSetGeometryMask(geometry, instance.visibilityMask);
    rtcAttachGeometryByID(m_root, geometry, number);
    m_geometries[number] = geometry;
    m_apart[number] = true;
}

// Under a number that no instance will have for long.
void EmbreeIntersector::attachWhole() {
    if (m_worldSpace != RTC_INVALID_GEOMETRY_ID) rtcDetachGeometry(m_root, m_worldSpace);
    m_worldSpace = std::bit_ceil(static_cast<unsigned>(m_scene->instances.size()) + 512u);
    RTCGeometry geometry = rtcNewGeometry(m_device->handle, RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(geometry, m_whole);
    rtcSetGeometryMask(geometry, RAY_ALL);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(m_root, geometry, m_worldSpace);
    rtcReleaseGeometry(geometry);
}

// Masks are looked at when a ray meets a triangle, so that what is hidden costs no new structure. There is one level of
// instances at most: those that are in the whole must leave it.
void EmbreeIntersector::divide() {
    m_whole = m_root;
    m_root = newScene();
    for (unsigned i = 0; i < m_geometries.size(); ++i) {
        if (!m_scene->instances[i] || !m_scene->instances[i]->hasXfm) continue;
        if (m_geometries[i]) {
            rtcSetGeometryMask(m_geometries[i], 0);
            rtcReleaseGeometry(m_geometries[i]);
        }
        attachApart(i);
    }
    attachWhole();
}

void EmbreeIntersector::prepareUpdate(unsigned number, const std::atomic<bool>* stop) {
    m_objectScenes.resize(m_scene->objects.size());
    struct Stoppable {
        const std::atomic<bool>*& by;
        ~Stoppable() { by = nullptr; }
    } const stoppable{m_stop};
    m_stop = stop;
    objectScene(m_scene->instances[number]->object);
}

void EmbreeIntersector::update(unsigned number) {
    const auto count = m_scene->instances.size();
    m_inWhole.resize(m_scene->objects.size());
    m_geometries.resize(count);
    m_apart.resize(count);
    if (!m_whole) divide();
    if (count > m_worldSpace) attachWhole();
    if (m_apart[number]) return;
    if (m_geometries[number]) {
        rtcSetGeometryMask(m_geometries[number], 0);
        rtcReleaseGeometry(m_geometries[number]);
    }
    attachApart(number);
}

void EmbreeIntersector::remove(unsigned number) {
    if (number >= m_geometries.size() || !m_geometries[number]) return;
    rtcSetGeometryMask(m_geometries[number], 0);
    if (m_apart[number]) rtcDetachGeometry(m_root, number);
    rtcReleaseGeometry(m_geometries[number]);
    m_geometries[number] = nullptr;
    m_apart[number] = false;
}

void EmbreeIntersector::setVisibility(unsigned number, Oxuint mask) {
    if (number < m_geometries.size() && m_geometries[number]) rtcSetGeometryMask(m_geometries[number], mask);
}

bool EmbreeIntersector::release(unsigned object) {
    if (object >= m_objectScenes.size()) return true;
    if (m_objectScenes[object]) rtcReleaseScene(m_objectScenes[object]);
    m_objectScenes[object] = nullptr;
    const bool built = m_inWhole[object];
    m_inWhole[object] = false;  // what it gets now is not
    return !built;
}

}  // namespace oxbeam
