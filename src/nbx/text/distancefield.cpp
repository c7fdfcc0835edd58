#include "distancefield.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace NBX {

namespace {

using Field = FontFace::DistanceField;

constexpr int s_reach = int(FontFace::fieldReach);

/// As large as the outline, with the reach around it.
Field emptyField(const std::vector<OutlinePiece> & outline) {
    double left = outline[0].x0, right = left, bottom = outline[0].y0, top = bottom;
    for (const OutlinePiece & piece : outline) {
        left = std::min({left, piece.x0, piece.x1});
        right = std::max({right, piece.x0, piece.x1});
        bottom = std::min({bottom, piece.y0, piece.y1});
        top = std::max({top, piece.y0, piece.y1});
    }
    Field field;
    field.left = int(std::floor(left)) - s_reach;
    field.bottom = int(std::floor(bottom)) - s_reach;
    field.width = unsigned(int(std::ceil(right)) + s_reach - field.left);
    field.height = unsigned(int(std::ceil(top)) + s_reach - field.bottom);
    return field;
}

/// The texels whose middle lies from `low` to `high`, of `count` from `origin` on.
struct Span {
    unsigned begin, end;

    Span(double low, double high, int origin, unsigned count)
        : begin(texel(std::ceil(low - origin - 0.5), count)),
          end(texel(std::floor(high - origin - 0.5) + 1.0, count)) {}

private:
    static unsigned texel(double at, unsigned count) { return unsigned(std::clamp(at, 0.0, double(count))); }
};

/// Lowers the squared distances of what the piece reaches.
void approach(const OutlinePiece & piece, const Field & field, std::vector<float> & squares) {
    const auto [left, right] = std::minmax(piece.x0, piece.x1);
    const auto [bottom, top] = std::minmax(piece.y0, piece.y1);
    const Span columns(left - s_reach, right + s_reach, field.left, field.width),
        rows(bottom - s_reach, top + s_reach, field.bottom, field.height);
    const auto dx = float(piece.x1 - piece.x0), dy = float(piece.y1 - piece.y0);
    const float square = dx * dx + dy * dy, inverse = square > 0.0F ? 1.0F / square : 0.0F;
    for (unsigned row = rows.begin; row < rows.end; ++row) {
        const auto y = float(field.bottom + int(row) + 0.5 - piece.y0);
        float * line = squares.data() + std::size_t(row) * field.width;
        for (unsigned column = columns.begin; column < columns.end; ++column) {
            const auto x = float(field.left + int(column) + 0.5 - piece.x0);
            const float along = std::clamp((x * dx + y * dy) * inverse, 0.0F, 1.0F);
            const float u = x - along * dx, v = y - along * dy;
            line[column] = std::min(line[column], u * u + v * v);
        }
    }
}

/// Adds, for each row, in which column how many turns begin or end.
void cross(const OutlinePiece & piece, const Field & field, std::vector<std::int16_t> & turns) {
    if (piece.y0 == piece.y1) return;
    const bool isUpwards = piece.y0 < piece.y1;
    const auto [bottom, top] = std::minmax(piece.y0, piece.y1);
    const Span rows(bottom, top, field.bottom, field.height);
    for (unsigned row = rows.begin; row < rows.end; ++row) {
        const double y = field.bottom + int(row) + 0.5;
        if (y >= top) continue;
        const double x = piece.x0 + (y - piece.y0) / (piece.y1 - piece.y0) * (piece.x1 - piece.x0);
        const Span columns(x, x, field.left, field.width);
        if (columns.begin < field.width)
            turns[std::size_t(row) * field.width + columns.begin] += isUpwards ? -1 : 1;
    }
}

} // namespace

FontFace::DistanceField distanceFieldOf(const std::vector<OutlinePiece> & outline) {
    if (outline.empty()) return {};
    Field field = emptyField(outline);
    const std::size_t texels = std::size_t(field.width) * field.height;
    std::vector<float> squares(texels, float(s_reach * s_reach));
    std::vector<std::int16_t> turns(texels);
    for (const OutlinePiece & piece : outline) {
        approach(piece, field, squares);
        cross(piece, field, turns);
    }
    field.distances.reserve(texels);
    int winding = 0;
    for (std::size_t i = 0; i < texels; ++i) {
        winding = i % field.width == 0 ? turns[i] : winding + turns[i];
        const float away = std::sqrt(squares[i]) * (128.0F / s_reach);
        const long value = std::lround(winding != 0 ? 128.0F + away : 128.0F - away);
        field.distances.push_back(std::uint8_t(std::clamp(value, 0L, 255L)));
    }
    return field;
}

} // namespace NBX
