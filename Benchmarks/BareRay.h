// A recorded ray as the bare kernel is asked for it.
#pragma once

#include "Benchmarks/Recording.h"

#include <embree3/rtcore.h>

namespace oxbeam::bench {

inline RTCRayHit queryOf(const TracedRay& ray) {
    RTCRayHit query;
    query.ray.org_x = ray.origin.x, query.ray.org_y = ray.origin.y, query.ray.org_z = ray.origin.z;
    query.ray.dir_x = ray.direction.x, query.ray.dir_y = ray.direction.y, query.ray.dir_z = ray.direction.z;
    query.ray.tnear = ray.tnear, query.ray.tfar = ray.tfar;
    query.ray.time = 0.0f;
    query.ray.mask = ray.kind;
    query.ray.id = query.ray.flags = 0;
    query.hit.geomID = query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    return query;
}

}  // namespace oxbeam::bench
