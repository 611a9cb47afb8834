#include "Engine/Import/Helper/PlyFile.h"

#include "Engine/Import/Helper/Polygon.h"
#include "Engine/Import/Helper/Vertices.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace oxbeam {

namespace {

constexpr unsigned None = 0xffffffffu;

// ---- Header

enum class Type { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

const std::map<std::string, Type> Types = {
    {"char", Type::Int8},     {"int8", Type::Int8},       {"uchar", Type::UInt8},    {"uint8", Type::UInt8},
    {"short", Type::Int16},   {"int16", Type::Int16},     {"ushort", Type::UInt16},  {"uint16", Type::UInt16},
    {"int", Type::Int32},     {"int32", Type::Int32},     {"uint", Type::UInt32},    {"uint32", Type::UInt32},
    {"float", Type::Float32}, {"float32", Type::Float32}, {"double", Type::Float64}, {"float64", Type::Float64}};

std::size_t sizeOf(Type type) {
    return type >= Type::Float32 ? (type == Type::Float64 ? 8 : 4) : 1u << static_cast<unsigned>(type) / 2;
}

// What stands for 1 among colours.
double whiteOf(Type type) {
    if (type >= Type::Float32) return 1.0;
    const bool isSigned = static_cast<unsigned>(type) % 2 == 0;
    return std::ldexp(1.0, static_cast<int>(8 * sizeOf(type)) - (isSigned ? 1 : 0)) - 1.0;
}

struct Property {
    std::string name;
    Type type = Type::Float32;
    std::optional<Type> length;  // of a list
};

struct Element {
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

    bool hasLists() const {
        return std::any_of(properties.begin(), properties.end(),
                           [](const Property& p) { return p.length.has_value(); });
    }
};

enum class Format { Text, LeastFirst, MostFirst };

struct Header {
    Format format = Format::Text;
    std::vector<std::string> textures;  // the comments that name them
    std::vector<Element> elements;
    std::size_t size = 0;  // in the file

    const Element* find(const std::string& name) const {
        const auto found =
            std::find_if(elements.begin(), elements.end(), [&](const Element& e) { return e.name == name; });
        return found == elements.end() ? nullptr : &*found;
    }
};

// The next line without its end, which may be that of any system.
std::optional<std::string> takeLine(std::string_view bytes, std::size_t& at) {
    constexpr std::size_t longest = 4096;
    const std::size_t end = bytes.substr(0, at + longest).find_first_of("\r\n", at);
    if (end == std::string_view::npos) return std::nullopt;
    std::string line(bytes.substr(at, end - at));
    at = end + (bytes.substr(end, 2) == "\r\n" ? 2 : 1);
    return line;
}

bool readProperty(std::istream& words, Element& element) {
    Property property;
    std::string type;
    words >> type;
    if (type == "list") {
        std::string length;
        words >> length >> type;
        if (!Types.contains(length)) return false;
        property.length = Types.at(length);
    }
    if (!(words >> property.name) || !Types.contains(type)) return false;
    property.type = Types.at(type);
    element.properties.push_back(std::move(property));
    return true;
}

bool readFormat(std::istream& words, Header& header) {
    static const std::map<std::string, Format> formats = {{"ascii", Format::Text},
                                                          {"binary_little_endian", Format::LeastFirst},
                                                          {"binary_big_endian", Format::MostFirst}};
    std::string name;
    words >> name;
    if (!formats.contains(name)) return false;
    header.format = formats.at(name);
    return true;
}

std::optional<Header> readHeader(std::string_view bytes) {
    Header header;
    if (takeLine(bytes, header.size) != "ply") return std::nullopt;
    while (const auto line = takeLine(bytes, header.size)) {
        std::istringstream words(*line);
        std::string word;
        words >> word;
        bool good = true;
        if (word == "end_header") return header;
        if (word == "format") good = readFormat(words, header);
        if (word == "comment" && line->find("TextureFile") != std::string::npos) header.textures.push_back(*line);
        if (word == "element") {
            Element& element = header.elements.emplace_back();
            good = static_cast<bool>(words >> element.name >> element.count);
        }
        if (word == "property") good = !header.elements.empty() && readProperty(words, header.elements.back());
        if (!good) return std::nullopt;
    }
    return std::nullopt;
}

// ---- Values

// What follows the header, value by value. Once one is missing or none, there are no more.
class Values {
public:
    Values(std::string_view bytes, Format format) : m_at(bytes.data()), m_end(m_at + bytes.size()), m_format(format) {}

    bool next(Type type, double& value) {
        if (m_format == Format::Text) return nextText(value);
        switch (type) {
        case Type::Int8: return nextBinary<std::int8_t>(value);
        case Type::UInt8: return nextBinary<std::uint8_t>(value);
        case Type::Int16: return nextBinary<std::int16_t>(value);
        case Type::UInt16: return nextBinary<std::uint16_t>(value);
        case Type::Int32: return nextBinary<std::int32_t>(value);
        case Type::UInt32: return nextBinary<std::uint32_t>(value);
        case Type::Float32: return nextBinary<float>(value);
        default: return nextBinary<double>(value);
        }
    }
    // How many values are left at most, of those that take so many bytes in a binary file.
    std::size_t mostLeft(std::size_t size) const {
        return static_cast<std::size_t>(m_end - m_at) / (m_format == Format::Text ? 1 : std::max<std::size_t>(size, 1));
    }

private:
    template <class T>
    bool nextBinary(double& value) {
        if (static_cast<std::size_t>(m_end - m_at) < sizeof(T)) return false;
        char bytes[sizeof(T)];
        std::memcpy(bytes, m_at, sizeof(T));
        if ((m_format == Format::LeastFirst) != (std::endian::native == std::endian::little))
            std::reverse(bytes, bytes + sizeof(T));
        T number;
        std::memcpy(&number, bytes, sizeof(T));
        value = static_cast<double>(number);
        m_at += sizeof(T);
        return true;
    }

    bool nextText(double& value) {
        while (m_at < m_end && static_cast<unsigned char>(*m_at) <= ' ') ++m_at;
        if (m_at < m_end && *m_at == '+') ++m_at;
        const auto [rest, problem] = std::from_chars(m_at, m_end, value);
        if (problem == std::errc::invalid_argument) return false;
        if (problem == std::errc::result_out_of_range) value = 0.0;
        m_at = rest;
        return true;
    }

    const char *m_at, *m_end;
    Format m_format;
};

// ---- Elements

enum Slot : unsigned { X, Y, Z, NormalX, NormalY, NormalZ, S, T, Red, Green, Blue, Other, Slots };

Slot slotOf(const std::string& name) {
    static const std::map<std::string, Slot> slots = {{"x", X},
                                                      {"y", Y},
                                                      {"z", Z},
                                                      {"nx", NormalX},
                                                      {"ny", NormalY},
                                                      {"nz", NormalZ},
                                                      {"s", S},
                                                      {"t", T},
                                                      {"u", S},
                                                      {"v", T},
                                                      {"texture_u", S},
                                                      {"texture_v", T},
                                                      {"s0", S},
                                                      {"t0", T},
                                                      {"red", Red},
                                                      {"green", Green},
                                                      {"blue", Blue},
                                                      {"r", Red},
                                                      {"g", Green},
                                                      {"b", Blue},
                                                      {"diffuse_red", Red},
                                                      {"diffuse_green", Green},
                                                      {"diffuse_blue", Blue}};
    const auto found = slots.find(name);
    return found == slots.end() ? Other : found->second;
}

std::string number(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

class PlyReader {
public:
    PlyReader(const Header& header, Values values) : m_header(header), m_values(values) {}

    PlyFile read() {
        for (const Element& element : m_header.elements) readElement(element);
        cutPolygons();
        dropBadTriangles();
        const std::size_t vertices = m_file.mesh.positions.size(), unused = countUnused();
        if (m_hasWedges) takeWedges();
        warn(vertices, unused);
        makeSample();
        return std::move(m_file);
    }

private:
    // Corners of a face that has more than three; its place among them all.
    struct Polygon {
        std::size_t first, corners;
    };

    void readElement(const Element& element);
    void readVertices(const Element& element);
    bool readRow(const Element& element);
    bool readList(const Property& property, std::vector<double>& list);
    void takeFace();
    void takeStrips();
    void cutPolygons();
    void dropBadTriangles();
    std::size_t countUnused() const;
    void takeWedges();
    void warn(std::size_t vertices, std::size_t unused);
    void makeSample();
    void missing(std::uint64_t declared, std::uint64_t arrived, const char* one, const char* many);

    const Header& m_header;
    Values m_values;
    bool m_ended = false;  // in an element that is not complete
    PlyFile m_file;
    std::vector<double> m_indices, m_coordinates;  // of the row's lists
    std::vector<Polygon> m_polygons;
    std::vector<unsigned> m_polygonCorners;
    std::vector<R2> m_polygonWedges, m_wedges;  // texture coordinates by corner, where faces have them
    bool m_hasWedges = false;
    std::vector<std::string> m_lost, m_unknown;
    std::uint64_t m_smallFaces = 0, m_badTriangles = 0;
};

void PlyReader::readElement(const Element& element) {
    if (m_ended && element.count > 0) return missing(element.count, 0, element.name.c_str(), element.name.c_str());
    if (element.name == "vertex") return readVertices(element);
    const bool isFace = element.name == "face", isStrips = element.name == "tristrips";
    if (!isFace && !isStrips && element.hasLists() && element.count > 0) m_unknown.push_back(element.name);
    if (element.properties.empty()) return;
    if (isFace) m_file.mesh.indices.reserve(3 * std::min<std::uint64_t>(element.count, m_values.mostLeft(4)));
    std::uint64_t rows = 0;
    for (; rows < element.count && readRow(element); ++rows) {
        if (isFace) takeFace();
        if (isStrips) takeStrips();
    }
    missing(element.count, rows, isFace ? "face" : element.name.c_str(), isFace ? "faces" : element.name.c_str());
}

void PlyReader::missing(std::uint64_t declared, std::uint64_t arrived, const char* one, const char* many) {
    m_ended = m_ended || arrived < declared;
    if (arrived < declared)
        m_lost.push_back(std::to_string(declared - arrived) + " of " + number(declared, one, many) +
                         ", since the file ends early or is damaged");
}

void PlyReader::readVertices(const Element& element) {
    std::vector<Slot> slots;
    bool has[Slots] = {};
    double white = 1.0;
    std::size_t size = 0;
    for (const Property& p : element.properties) {
        slots.push_back(p.length ? Other : slotOf(p.name));
        has[slots.back()] = true;
        size += p.length ? sizeOf(*p.length) : sizeOf(p.type);
        if (slots.back() == Red) white = whiteOf(p.type);
    }
    MeshData& mesh = m_file.mesh;
    const bool first = mesh.positions.empty() && has[X] && has[Y] && has[Z];
    const std::size_t most = first ? std::min<std::uint64_t>(element.count, m_values.mostLeft(size)) : 0;
    mesh.positions.reserve(most);
    if (has[NormalX] && has[NormalY] && has[NormalZ]) mesh.normals.reserve(most);
    if (has[S] && has[T]) mesh.texCoords.reserve(most);
    if (has[Red] && has[Green] && has[Blue]) mesh.colors.reserve(most);
    double row[Slots] = {};
    const auto three = [&](Slot slot, double scale) {
        return R3(static_cast<float>(row[slot] * scale), static_cast<float>(row[slot + 1] * scale),
                  static_cast<float>(row[slot + 2] * scale));
    };
    const auto readOne = [&] {
        for (std::size_t i = 0; i < slots.size(); ++i) {
            const Property& p = element.properties[i];
            if (p.length ? !readList(p, m_indices) : !m_values.next(p.type, row[slots[i]])) return false;
        }
        return true;
    };
    std::uint64_t rows = 0;
    for (; rows < element.count && !slots.empty() && readOne(); ++rows) {
        if (!first) continue;
        mesh.positions.push_back(three(X, 1.0));
        if (has[NormalX] && has[NormalY] && has[NormalZ]) mesh.normals.push_back(three(NormalX, 1.0));
        if (has[S] && has[T]) mesh.texCoords.emplace_back(static_cast<float>(row[S]), static_cast<float>(row[T]));
        if (has[Red] && has[Green] && has[Blue]) mesh.colors.push_back(three(Red, 1.0 / white));
    }
    missing(element.count, rows, "vertex", "vertices");
}

bool PlyReader::readList(const Property& property, std::vector<double>& list) {
    double length = 0.0;
    list.clear();
    if (!m_values.next(*property.length, length)) return false;
    if (!(length >= 0.0) || length > static_cast<double>(m_values.mostLeft(sizeOf(property.type)))) return false;
    for (auto left = static_cast<std::size_t>(length); left > 0; --left)
        if (!m_values.next(property.type, list.emplace_back())) return false;
    return true;
}

// One face or whatever else; its indices and texture coordinates are kept until the next.
bool PlyReader::readRow(const Element& element) {
    m_indices.clear();
    m_coordinates.clear();
    std::vector<double> rest;
    double value = 0.0;
    for (const Property& p : element.properties) {
        std::vector<double>& list = p.name == "vertex_indices" || p.name == "vertex_index" ? m_indices
                                    : p.name == "texcoord"                                 ? m_coordinates
                                                                                           : rest;
        if (p.length ? !readList(p, list) : !m_values.next(p.type, value)) return false;
    }
    return true;
}

unsigned indexOf(double value) { return value >= 0.0 && value < None ? static_cast<unsigned>(value) : None; }

void PlyReader::takeFace() {
    const std::size_t corners = m_indices.size();
    if (corners < 3) {
        ++m_smallFaces;
        return;
    }
    const bool hasWedges = m_coordinates.size() == 2 * corners;
    if (hasWedges && !m_hasWedges) {
        m_hasWedges = true;
        m_wedges.resize(m_file.mesh.indices.size());
        m_polygonWedges.resize(m_polygonCorners.size());
    }
    if (corners > 3) m_polygons.push_back({m_polygonCorners.size(), corners});
    for (std::size_t i = 0; i < corners; ++i) {
        (corners > 3 ? m_polygonCorners : m_file.mesh.indices).push_back(indexOf(m_indices[i]));
        if (!m_hasWedges) continue;
        const R2 wedge =
            hasWedges ? R2(static_cast<float>(m_coordinates[2 * i]), static_cast<float>(m_coordinates[2 * i + 1]))
                      : R2();
        (corners > 3 ? m_polygonWedges : m_wedges).push_back(wedge);
    }
}

// One after the other, each ended by a negative index. Every other triangle turns the other way.
void PlyReader::takeStrips() {
    std::size_t start = 0;
    for (std::size_t i = 0; i < m_indices.size(); ++i) {
        if (!(m_indices[i] >= 0.0)) {
            start = i + 1;
            continue;
        }
        if (i < start + 2) continue;
        const unsigned a = indexOf(m_indices[i - 2]), b = indexOf(m_indices[i - 1]), c = indexOf(m_indices[i]);
        if (a == b || b == c || c == a) continue;  // which only leads on to the next
        const bool turned = (i - start) % 2 == 1;
        m_file.mesh.indices.insert(m_file.mesh.indices.end(), {turned ? b : a, turned ? a : b, c});
        if (m_hasWedges) m_wedges.insert(m_wedges.end(), 3, R2());
    }
}

// Once all vertices are known.
void PlyReader::cutPolygons() {
    MeshData& mesh = m_file.mesh;
    std::vector<R3> corners;
    std::vector<std::array<unsigned, 3>> triangles;
    for (const Polygon& polygon : m_polygons) {
        corners.clear();
        for (std::size_t i = 0; i < polygon.corners; ++i) {
            const unsigned vertex = m_polygonCorners[polygon.first + i];
            corners.push_back(vertex < mesh.positions.size() ? mesh.positions[vertex] : R3());
        }
        triangulate(corners, triangles);
        for (const auto& triangle : triangles)
            for (const unsigned corner : triangle) {
                mesh.indices.push_back(m_polygonCorners[polygon.first + corner]);
                if (m_hasWedges) m_wedges.push_back(m_polygonWedges[polygon.first + corner]);
            }
    }
}

void PlyReader::dropBadTriangles() {
    std::vector<unsigned>& indices = m_file.mesh.indices;
    std::size_t kept = 0;
    for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
        if (std::max({indices[i], indices[i + 1], indices[i + 2]}) >= m_file.mesh.positions.size()) {
            ++m_badTriangles;
            continue;
        }
        for (std::size_t k = 0; k < 3; ++k) {
            indices[kept + k] = indices[i + k];
            if (m_hasWedges) m_wedges[kept + k] = m_wedges[i + k];
        }
        kept += 3;
    }
    indices.resize(kept);
    if (m_hasWedges) m_wedges.resize(kept);
}

std::size_t PlyReader::countUnused() const {
    std::vector<bool> used(m_file.mesh.positions.size());
    for (const unsigned vertex : m_file.mesh.indices) used[vertex] = true;
    return static_cast<std::size_t>(std::count(used.begin(), used.end(), false));
}

// Every corner becomes a vertex; those that agree, one again.
void PlyReader::takeWedges() {
    MeshData& mesh = m_file.mesh;
    const auto spread = [&](std::vector<R3>& values) {
        if (values.empty()) return;
        std::vector<R3> all;
        all.reserve(mesh.indices.size());
        for (const unsigned vertex : mesh.indices) all.push_back(values[vertex]);
        values = std::move(all);
    };
    spread(mesh.positions);
    spread(mesh.normals);
    spread(mesh.colors);
    mesh.texCoords = std::move(m_wedges);
    for (std::size_t i = 0; i < mesh.indices.size(); ++i) mesh.indices[i] = static_cast<unsigned>(i);
    joinVertices(mesh);
}

void PlyReader::warn(std::size_t vertices, std::size_t unused) {
    if (m_smallFaces > 0) m_lost.push_back(number(m_smallFaces, "face", "faces") + " of fewer than three corners");
    if (m_badTriangles > 0)
        m_lost.push_back(number(m_badTriangles, "triangle", "triangles") +
                         " with vertices that the file does not have");
    for (const std::string& name : m_unknown) m_lost.push_back("the element '" + name + "', which is not known here");
    if (2 * unused > vertices)
        m_lost.push_back(std::to_string(unused) + " of " + number(vertices, "vertex", "vertices") +
                         ", which no face uses");
    if (m_header.textures.size() > 1)
        m_lost.push_back("all but the first of its " + std::to_string(m_header.textures.size()) + " textures");
    if (m_lost.empty()) return;
    std::string text = "the file holds more than is shown; missing: " + m_lost[0];
    for (std::size_t i = 1; i < m_lost.size(); ++i) text += "; " + m_lost[i];
    m_file.warnings.push_back(text);
}

void PlyReader::makeSample() {
    const MeshData& mesh = m_file.mesh;
    std::string& text = m_file.sample;
    text = "ply\nformat ascii 1.0\n";
    if (!m_header.textures.empty()) text += m_header.textures[0] + '\n';
    text += "element vertex 3\nproperty float x\nproperty float y\nproperty float z\n";
    if (!mesh.texCoords.empty()) text += "property float s\nproperty float t\n";
    if (!mesh.colors.empty()) text += "property float red\nproperty float green\nproperty float blue\n";
    text += "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    for (const char* position : {"0 0 0", "1 0 0", "0 1 0"})
        text +=
            std::string(position) + (mesh.texCoords.empty() ? "" : " 0 0") + (mesh.colors.empty() ? "\n" : " 1 1 1\n");
    text += "3 0 1 2\n";
}

}  // namespace

std::optional<PlyFile> parsePly(std::string_view bytes) {
    const auto header = readHeader(bytes);
    if (!header || header->find("material") || !header->find("vertex")) return std::nullopt;
    const auto declares = [&](const char* name) {
        const Element* element = header->find(name);
        return element && element->count > 0;
    };
    if (!declares("face") && !declares("tristrips")) return std::nullopt;
    return PlyReader(*header, {bytes.substr(header->size), header->format}).read();
}

std::optional<PlyFile> readPly(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(std::filesystem::file_size(file)), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    return parsePly(bytes);
}

}  // namespace oxbeam
