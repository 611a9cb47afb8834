// Small models written by tests.
#pragma once

#include "Tests/Support/SceneText.h"

#include <cstring>

namespace oxbeam::test {

inline std::string base64(const std::string& bytes) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
        for (unsigned j = 0; j < 4; ++j) text += i + j <= bytes.size() ? digits[group >> (18 - 6 * j) & 63] : '=';
    }
    return text;
}

// How a polygon file as text begins, with properties of its vertices after their places.
inline std::string plyHead(unsigned vertices, const std::string& properties = {}) {
    return "ply\nformat ascii 1.0\nelement vertex " + std::to_string(vertices) +
           "\nproperty float x\nproperty float y\nproperty float z\n" + properties;
}

// A square of side 2 in the plane z = 0 with texture coordinates from the top left. `material` is the body of its
// material, `more` further members of the document, each with a comma before it.
inline fs::path writeGltf(const std::string& name, const std::string& material, const std::string& more = {},
                          const std::string& node = {}, float firstX = -1.0f) {
    const float numbers[] = {firstX, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0, 0, 1, 1, 1, 1, 0, 0, 0};
    const std::uint16_t indices[] = {0, 1, 2, 0, 2, 3};
    std::string bytes(sizeof numbers + sizeof indices, '\0');
    std::memcpy(bytes.data(), numbers, sizeof numbers);
    std::memcpy(bytes.data() + sizeof numbers, indices, sizeof indices);
    return writeFile(name, R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
"nodes": [{"mesh": 0 )" + node +
                               R"(}],
"meshes": [{"primitives": [{"attributes": {"POSITION": 0, "TEXCOORD_0": 1}, "indices": 2, "material": 0}]}],
"materials": [{)" + material + R"(}],
"accessors": [{"bufferView": 0, "componentType": 5126, "count": 4, "type": "VEC3"},
 {"bufferView": 1, "componentType": 5126, "count": 4, "type": "VEC2"},
 {"bufferView": 2, "componentType": 5123, "count": 6, "type": "SCALAR"}],
"bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 48}, {"buffer": 0, "byteOffset": 48, "byteLength": 32},
 {"buffer": 0, "byteOffset": 80, "byteLength": 12}],
"buffers": [{"byteLength": 92, "uri": "data:application/octet-stream;base64,)" +
                               base64(bytes) + "\"}]" + more + "}");
}

// The square with an animation "slide": in two seconds it moves by 4 along x and turns by a right angle about z.
inline fs::path writeMovingGltf(const std::string& name) {
    constexpr float half = 0.70710678f;
    const float numbers[] = {0, 2, 0, 0, 0, 4, 0, 0, 0, 0, 0, 1, 0, 0, half, half};
    std::string bytes(sizeof numbers, '\0');
    std::memcpy(bytes.data(), numbers, sizeof numbers);
    std::string text = contentOf(writeGltf(name, "", R"(,
"animations": [{"name": "slide", "channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}},
 {"sampler": 1, "target": {"node": 0, "path": "rotation"}}],
 "samplers": [{"input": 3, "output": 4}, {"input": 3, "output": 5}]}])"));
    const auto put = [&](const std::string& after, const std::string& what) {
        text.insert(text.find(after) + after.size(), what);
    };
    for (auto i = text.find("\"buffer\": 0"); i != std::string::npos; i = text.find("\"buffer\": 0", i + 1))
        text.replace(i, 11, "\"buffer\": 1");
    put("\"buffers\": [",
        R"({"byteLength": 64, "uri": "data:application/octet-stream;base64,)" + base64(bytes) + "\"}, ");
    put("\"byteOffset\": 80, \"byteLength\": 12}", R"(, {"buffer": 0, "byteOffset": 0, "byteLength": 8},
 {"buffer": 0, "byteOffset": 8, "byteLength": 24}, {"buffer": 0, "byteOffset": 32, "byteLength": 32})");
    put("\"count\": 6, \"type\": \"SCALAR\"}", R"(, {"bufferView": 3, "componentType": 5126, "count": 2,
 "type": "SCALAR", "min": [0], "max": [2]}, {"bufferView": 4, "componentType": 5126, "count": 2, "type": "VEC3"},
 {"bufferView": 5, "componentType": 5126, "count": 2, "type": "VEC4"})");
    return writeFile(name, text);
}

}  // namespace oxbeam::test
