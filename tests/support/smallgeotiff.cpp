#include "smallgeotiff.h"

#include <algorithm>

namespace {

enum FieldType : std::uint16_t { FT_Ascii = 2, FT_Short = 3, FT_Long = 4, FT_Double = 12 };

template <class T> std::string bytesOf(const std::vector<T> & values) {
    std::string bytes(values.size() * sizeof(T), '\0');
    if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

struct Field {
    std::uint16_t tag;
    FieldType type;
    std::uint32_t count;
    std::string bytes;
};

Field shorts(std::uint16_t tag, const std::vector<std::uint16_t> & values) {
    return {tag, FT_Short, std::uint32_t(values.size()), bytesOf(values)};
}

Field number(std::uint16_t tag, std::uint32_t value) {
    return {tag, FT_Long, 1, bytesOf(std::vector<std::uint32_t>{value})};
}

Field doubles(std::uint16_t tag, const std::vector<double> & values) {
    return {tag, FT_Double, std::uint32_t(values.size()), bytesOf(values)};
}

constexpr std::uint16_t s_stripOffsets = 273;

/// Header, directory, the values that do not fit into it, pixels.
std::string assemble(std::vector<Field> fields, const std::string & pixels) {
    std::size_t end = 8 + 2 + 12 * fields.size() + 4;
    std::vector<std::size_t> places;
    for (const Field & field : fields) {
        places.push_back(end);
        if (field.bytes.size() > 4) end += (field.bytes.size() + 1) / 2 * 2;
    }
    std::string directory = bytesOf(std::vector<std::uint16_t>{std::uint16_t(fields.size())});
    std::string values;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        Field & field = fields[i];
        if (field.tag == s_stripOffsets) field = number(s_stripOffsets, std::uint32_t(end));
        directory += bytesOf(std::vector<std::uint16_t>{field.tag, field.type});
        directory += bytesOf(std::vector<std::uint32_t>{field.count});
        if (field.bytes.size() > 4) {
            directory += bytesOf(std::vector<std::uint32_t>{std::uint32_t(places[i])});
            values += field.bytes + std::string(field.bytes.size() % 2, '\0');
        } else {
            directory += field.bytes + std::string(4 - field.bytes.size(), '\0');
        }
    }
    return std::string("II\x2a\0\x8\0\0\0", 8) + directory + std::string(4, '\0') + values + pixels;
}

} // namespace

std::string SmallGeoTiff::encode() const {
    const bool isColors = pixels == Pixels::Colors;
    const std::string data = isColors ? bytesOf(colors) : bytesOf(heights);
    const auto samples = std::uint16_t(isColors ? 3 : 1);
    const auto bits = std::uint16_t(isColors ? 8 : 32);
    std::vector<Field> fields = {
        number(256, width),
        number(257, height),
        shorts(258, std::vector<std::uint16_t>(samples, bits)),
        shorts(259, {1}),
        shorts(262, {std::uint16_t(isColors ? 2 : 1)}),
        number(s_stripOffsets, 0),
        shorts(277, {samples}),
        number(278, height),
        number(279, std::uint32_t(data.size())),
        shorts(339, std::vector<std::uint16_t>(samples, std::uint16_t(isColors ? 1 : 3))),
    };
    if (isPlaced) {
        fields.push_back(doubles(33550, {cell, cell, 0.0}));
        fields.push_back(doubles(33922, {0.0, 0.0, 0.0, west, north, 0.0}));
        const auto kind = std::uint16_t(isInDegrees ? 2 : 1), code = std::uint16_t(isInDegrees ? 2048 : 3072);
        // Version, kind of the system, pixels are areas, code of the system.
        fields.push_back(shorts(34735, {1, 1, 0, 3, 1024, 0, 1, kind, 1025, 0, 1, 1, code, 0, 1, system}));
    }
    if (!unit.empty()) {
        const std::string text = "<GDALMetadata><Item name=\"UNITTYPE\" sample=\"0\" role=\"unittype\">" +
                                 unit + "</Item></GDALMetadata>";
        fields.push_back({42112, FT_Ascii, std::uint32_t(text.size() + 1), text + '\0'});
    }
    if (!noData.empty()) fields.push_back({42113, FT_Ascii, std::uint32_t(noData.size() + 1), noData + '\0'});
    return assemble(std::move(fields), data);
}
