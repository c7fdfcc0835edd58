// Marching along the rows of cells, triangle by triangle in the order of a strip (after W. E. Lorensen, H. E.
// Cline, "Marching Cubes", 1987, in the plane and over triangles, which knows no ambiguous cases). A triangle
// that the height crosses gives the part below; those below as a whole are joined along their row. Where such
// a run ends, and where a crossed triangle stands, the vertex is marked, so that runs of the neighbouring
// rows get it as a corner too.

#include <zmt/core/vector/floodarea.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include <zmt/raster/rasterdata.h>

namespace ZMT::CORE {

namespace {

using Position = FloodArea::Position;

enum class State : unsigned char { Undefined, Below, Above };

/// Triangles of a row of cells without one between them that is not below: columns of the first and of the
/// last vertex on both of its lines.
struct Run {
    unsigned row;
    unsigned lowerFirst, upperFirst, lowerLast, upperLast;
};

/// A bit for each vertex of the grid.
class Marks {
public:
    Marks(unsigned columns, unsigned rows) : words_(columns / 64 + 1), bits_(std::size_t(words_) * rows) {}

    void set(unsigned column, unsigned row) { word(column / 64, row) |= std::uint64_t(1) << column % 64; }
    /// Appends `first`, all columns with a mark behind it and before `last`, and `last`, each once.
    void collect(unsigned first, unsigned last, unsigned row, std::vector<unsigned> & columns) const {
        columns.assign(1, first);
        for (unsigned w = first / 64; w <= last / 64; ++w)
            for (std::uint64_t bits = word(w, row); bits != 0; bits &= bits - 1) {
                const unsigned column = w * 64 + unsigned(std::countr_zero(bits));
                if (column > first && column < last) columns.push_back(column);
            }
        if (last > first) columns.push_back(last);
    }

private:
    std::uint64_t & word(unsigned number, unsigned row) { return bits_[std::size_t(words_) * row + number]; }
    std::uint64_t word(unsigned number, unsigned row) const {
        return bits_[std::size_t(words_) * row + number];
    }

    unsigned words_;
    std::vector<std::uint64_t> bits_;
};

class Flooding {
public:
    Flooding(const GridData & grid, double height)
        : grid_(grid), origin_(grid.origin()), height_(height), marks_(grid.sizeX(), grid.sizeY()) {}

    std::vector<Position> corners() {
        std::vector<State> lower, upper;
        readLine(0, lower);
        for (unsigned row = 0; row + 1 < grid_.sizeY(); ++row) {
            readLine(row + 1, upper);
            walkRow(row, lower, upper);
            lower.swap(upper);
        }
        for (const Run & run : runs_)
            addRun(run);
        return std::move(corners_);
    }

private:
    struct Corner {
        Position position;
        State state;
    };
    using Triangle = std::array<Corner, 3>;

    State stateOf(double height) const {
        if (grid_.isUndefinedHeightValue(height)) return State::Undefined;
        return height <= height_ ? State::Below : State::Above;
    }
    void readLine(unsigned row, std::vector<State> & states) {
        line_.resize(grid_.sizeX());
        states.resize(grid_.sizeX());
        grid_.rasterData()->valueRow(row, line_.data());
        for (unsigned column = 0; column < grid_.sizeX(); ++column)
            states[column] = stateOf(line_[column]);
    }

    Position positionAt(unsigned column, unsigned row) const { return grid_.vertex(column, row) + origin_; }
    /// Of a triangle that is not below as a whole.
    Corner cornerAt(unsigned column, unsigned row, State state) {
        if (state == State::Below) marks_.set(column, row);
        return {positionAt(column, row), state};
    }

    void walkRow(unsigned row, const std::vector<State> & lower, const std::vector<State> & upper) {
        bool isRun = false;
        const auto add = [&](const Run & one, State a, State b, State c, auto && triangle) {
            const auto isAny = [&](State state) { return a == state || b == state || c == state; };
            const bool isBelow = !isAny(State::Above) && !isAny(State::Undefined);
            if (isBelow && isRun) {
                runs_.back().lowerLast = one.lowerLast;
                runs_.back().upperLast = one.upperLast;
            } else if (isBelow) {
                runs_.push_back(one);
            } else if (isAny(State::Below) && !isAny(State::Undefined)) {
                addPart(triangle());
            }
            isRun = isBelow;
        };
        for (unsigned i = 0; i + 1 < grid_.sizeX(); ++i) {
            const State a = lower[i], b = lower[i + 1], c = upper[i], d = upper[i + 1];
            if (grid_.hasCellShapes() && addShape(i, row)) {
                isRun = false;
                continue;
            }
            add({row, i, i, i + 1, i}, a, b, c, [&] {
                return Triangle{cornerAt(i, row, a), cornerAt(i + 1, row, b), cornerAt(i, row + 1, c)};
            });
            add({row, i + 1, i, i + 1, i + 1}, b, d, c, [&] {
                return Triangle{cornerAt(i + 1, row, b), cornerAt(i + 1, row + 1, d),
                                cornerAt(i, row + 1, c)};
            });
        }
        for (auto run = runs_.rbegin(); run != runs_.rend() && run->row == row; ++run) {
            marks_.set(run->lowerFirst, row);
            marks_.set(run->lowerLast, row);
            marks_.set(run->upperFirst, row + 1);
            marks_.set(run->upperLast, row + 1);
        }
    }

    /// False for a plain cell.
    bool addShape(unsigned column, unsigned row) {
        const std::vector<unsigned> corners = grid_.cellCorners(column, row);
        for (std::size_t i = 0; i + 2 < corners.size(); i += 3) {
            Triangle triangle;
            for (std::size_t k = 0; k < 3; ++k) {
                const Position local = grid_.vertex(corners[i + k]);
                triangle[k] = {local + origin_, stateOf(local.y)};
            }
            addPart(triangle);
        }
        // The cells around it have its corners.
        for (const unsigned x : {column, column + 1})
            for (const unsigned y : {row, row + 1})
                if (!corners.empty()) marks_.set(x, y);
        return !corners.empty();
    }

    /// Where the edge between two corners has the height. The same from both of its triangles.
    Position crossing(const Corner & below, const Corner & above) const {
        const Position & from = below.position;
        const double share = (height_ - from.y) / (above.position.y - from.y);
        Position place = from + (above.position - from) * share;
        place.y = height_;
        return place;
    }

    /// What lies below of a triangle.
    void addPart(const Triangle & triangle) {
        for (const Corner & corner : triangle)
            if (corner.state == State::Undefined) return;
        std::array<Position, 4> outline;
        std::size_t count = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            const Corner & corner = triangle[k];
            const Corner & next = triangle[(k + 1) % 3];
            if (corner.state == State::Below) outline[count++] = corner.position;
            if (corner.state == next.state) continue;
            outline[count++] = corner.state == State::Below ? crossing(corner, next) : crossing(next, corner);
        }
        for (std::size_t k = 2; k < count; ++k)
            corners_.insert(corners_.end(), {outline[0], outline[k - 1], outline[k]});
    }

    /// Triangles between the two lines, from left to right.
    void addRun(const Run & run) {
        marks_.collect(run.lowerFirst, run.lowerLast, run.row, lower_);
        marks_.collect(run.upperFirst, run.upperLast, run.row + 1, upper_);
        std::size_t l = 0, u = 0;
        while (l + 1 < lower_.size() || u + 1 < upper_.size()) {
            const bool isLower =
                u + 1 == upper_.size() || (l + 1 < lower_.size() && lower_[l + 1] <= upper_[u + 1]);
            const Position a = positionAt(lower_[l], run.row), b = positionAt(upper_[u], run.row + 1);
            const Position next =
                isLower ? positionAt(lower_[++l], run.row) : positionAt(upper_[++u], run.row + 1);
            corners_.insert(corners_.end(), {a, next, b});
        }
    }

    const GridData & grid_;
    const Position origin_;
    const double height_;
    std::vector<double> line_;
    std::vector<Run> runs_;
    Marks marks_;
    std::vector<unsigned> lower_, upper_; ///< columns of the run at hand
    std::vector<Position> corners_;
};

} // namespace

std::vector<Position> FloodArea::below(const GridData & grid, double height) {
    if (!grid.rasterData() || grid.sizeX() < 2 || grid.sizeY() < 2) return {};
    return Flooding(grid, height).corners();
}

} // namespace ZMT::CORE
