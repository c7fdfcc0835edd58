#include "featurerecord.h"

#include <algorithm>
#include <cstring>

namespace ZMT::RASTER {

namespace {

class Writer {
public:
    explicit Writer(std::vector<std::uint8_t> & bytes) : bytes_(bytes) {}

    template <class T> void add(const T & value) { addArray(&value, 1); }
    template <class T> void addArray(const T * values, std::size_t count) {
        const auto * first = reinterpret_cast<const std::uint8_t *>(values);
        bytes_.insert(bytes_.end(), first, first + count * sizeof(T));
    }
    void add(const std::string & text) {
        add(static_cast<std::uint32_t>(text.size()));
        addArray(text.data(), text.size());
    }

private:
    std::vector<std::uint8_t> & bytes_;
};

class Reader {
public:
    explicit Reader(const std::uint8_t * bytes) : at_(bytes) {}

    template <class T> T take() {
        T value;
        takeArray(&value, 1);
        return value;
    }
    template <class T> void takeArray(T * values, std::size_t count) {
        if (count > 0) std::memcpy(values, at_, count * sizeof(T));
        at_ += count * sizeof(T);
    }
    void take(std::string & text) {
        const auto size = take<std::uint32_t>();
        text.assign(reinterpret_cast<const char *>(at_), size);
        at_ += size;
    }
    void skip(std::size_t bytes) { at_ += bytes; }

private:
    const std::uint8_t * at_;
};

using Position = FeatureShapes::Position;

/// The kind of a value is its place in `FieldValue`.
void addValue(Writer & writer, const FieldValue & value) {
    writer.add(static_cast<std::uint8_t>(value.index()));
    if (const auto * integer = std::get_if<std::int64_t>(&value)) writer.add(*integer);
    if (const auto * real = std::get_if<double>(&value)) writer.add(*real);
    if (const auto * text = std::get_if<std::string>(&value)) writer.add(*text);
}

void takeValue(Reader & reader, FieldValue & value) {
    switch (reader.take<std::uint8_t>()) {
    case 1:
        value = reader.take<std::int64_t>();
        break;
    case 2:
        value = reader.take<double>();
        break;
    case 3: {
        if (!std::holds_alternative<std::string>(value)) value = std::string();
        reader.take(std::get<std::string>(value));
        break;
    }
    default:
        value = std::monostate();
        break;
    }
}

void skipValue(Reader & reader) {
    const auto kind = reader.take<std::uint8_t>();
    if (kind == 3)
        reader.skip(reader.take<std::uint32_t>());
    else if (kind > 0)
        reader.skip(sizeof(double));
}

} // namespace

bool FeatureRecord::isOfAreas() const {
    return std::all_of(shapes.paths.begin(), shapes.paths.end(), [](const FeatureShapes::Path & path) {
        return path.kind == FeatureShapes::Kind::Outline || path.kind == FeatureShapes::Kind::Hole;
    });
}

void FeatureRecord::encode(std::vector<std::uint8_t> & bytes) const {
    const std::size_t start = bytes.size();
    Writer writer(bytes);
    writer.add(std::uint64_t(0));
    writer.add(id);
    const bool hasHeights = std::any_of(shapes.positions.begin(), shapes.positions.end(),
                                        [](const Position & p) { return p.y != 0.0; });
    writer.add(static_cast<std::uint8_t>(hasHeights));
    writer.add(style);
    writer.add(static_cast<std::uint32_t>(values.size()));
    for (const FieldValue & value : values)
        addValue(writer, value);
    writer.add(static_cast<std::uint32_t>(shapes.paths.size()));
    writer.addArray(shapes.paths.data(), shapes.paths.size());
    for (const Position & p : shapes.positions) {
        writer.add(p.x);
        writer.add(p.z);
        if (hasHeights) writer.add(p.y);
    }
    const std::uint64_t size = bytes.size() - start;
    std::memcpy(&bytes[start], &size, sizeof size);
}

std::size_t FeatureRecord::encodedBytes(const std::uint8_t * head) {
    return static_cast<std::size_t>(Reader(head).take<std::uint64_t>());
}

void FeatureRecord::decode(const std::uint8_t * bytes, std::span<const unsigned> fields) {
    Reader reader(bytes + s_headBytes);
    id = reader.take<std::int64_t>();
    const bool hasHeights = reader.take<std::uint8_t>() != 0;
    reader.take(style);
    values.resize(fields.size());
    const auto count = reader.take<std::uint32_t>();
    for (std::uint32_t field = 0; field < count; ++field) {
        const auto wanted = std::find(fields.begin(), fields.end(), field);
        if (wanted == fields.end())
            skipValue(reader);
        else
            takeValue(reader, values[wanted - fields.begin()]);
    }
    shapes.clear();
    shapes.paths.resize(reader.take<std::uint32_t>());
    reader.takeArray(shapes.paths.data(), shapes.paths.size());
    shapes.positions.resize(shapes.paths.empty() ? 0 : shapes.paths.back().end);
    for (Position & p : shapes.positions) {
        p.x = reader.take<double>();
        p.z = reader.take<double>();
        p.y = hasHeights ? reader.take<double>() : 0.0;
    }
}

} // namespace ZMT::RASTER
