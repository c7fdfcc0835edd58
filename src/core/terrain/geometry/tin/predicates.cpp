// Source: J. R. Shewchuk, Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric Predicates,
// Discrete & Computational Geometry 18, 1997. Steps and stages are named as there.
//
// Deviations, none of which changes a sign: the last stage multiplies whole expansions instead of adding the
// tails one after the other; and inputs on a lattice, which are degenerate all the time, leave early
// (rectangles along the axes, differences that fit integers, and, between the stages, double words).

#include <zmt/core/terrain/geometry/tin/predicates.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace ZMT::CORE {

const PredicateBounds predicateBounds;

// "exactinit". The sums go through memory, so that wider registers cannot hide the rounding.
PredicateBounds::PredicateBounds() : epsilon(1.0), splitter(1.0) {
    bool everyOther = true;
    volatile double check = 1.0;
    double lastCheck;
    do {
        lastCheck = check;
        epsilon *= 0.5;
        if (everyOther) splitter *= 2.0;
        everyOther = !everyOther;
        check = 1.0 + epsilon;
    } while (check != 1.0 && check != lastCheck);
    splitter += 1.0;

    result = (3.0 + 8.0 * epsilon) * epsilon;
    ccwA = (3.0 + 16.0 * epsilon) * epsilon;
    ccwB = (2.0 + 12.0 * epsilon) * epsilon;
    ccwC = (9.0 + 64.0 * epsilon) * epsilon * epsilon;
    circleA = (10.0 + 96.0 * epsilon) * epsilon;
    circleFilter = 1.0001 * circleA;
    circleB = (4.0 + 48.0 * epsilon) * epsilon;
    circleC = (44.0 + 576.0 * epsilon) * epsilon * epsilon;
}

namespace {

using Point = NBX::Vector3Base<double>;

/// A rounded result and its exact rounding error.
struct Two {
    double head, tail;
};

inline Two fastTwoSum(double a, double b) {
    const double x = a + b;
    return {x, b - (x - a)};
}

inline Two twoSum(double a, double b) {
    const double x = a + b;
    const double bVirtual = x - a;
    const double aVirtual = x - bVirtual;
    return {x, (a - aVirtual) + (b - bVirtual)};
}

/// The rounding error of `x = a - b`.
inline double twoDiffTail(double a, double b, double x) {
    const double bVirtual = a - x;
    const double aVirtual = x + bVirtual;
    return (a - aVirtual) + (bVirtual - b);
}

inline Two split(double a) {
    const double c = predicateBounds.splitter * a;
    const double big = c - a;
    const double high = c - big;
    return {high, a - high};
}

inline Two twoProduct(double a, double b, const Two & bSplit) {
    const double x = a * b;
    const Two aSplit = split(a);
    const double error1 = x - aSplit.head * bSplit.head;
    const double error2 = error1 - aSplit.tail * bSplit.head;
    const double error3 = error2 - aSplit.head * bSplit.tail;
    return {x, aSplit.tail * bSplit.tail - error3};
}

inline Two twoProduct(double a, double b) {
    return twoProduct(a, b, split(b));
}

/// A sum of at most `Capacity` doubles that do not overlap, smallest first, without zeros unless it is 0.
template <int Capacity> struct Expansion {
    std::array<double, Capacity> term;
    int length = 0;

    void append(double value) {
        if (value != 0.0) term[length++] = value;
    }
    void finish(double last) {
        if (last != 0.0 || length == 0) term[length++] = last;
    }
    double estimate() const {
        double sum = 0.0;
        for (int i = 0; i < length; ++i)
            sum += term[i];
        return sum;
    }
    double sign() const { return term[length - 1]; }
    Expansion negated() const {
        Expansion n = *this;
        for (int i = 0; i < length; ++i)
            n.term[i] = -n.term[i];
        return n;
    }
};

inline Expansion<2> expansion(double head, double tail) {
    Expansion<2> e;
    e.append(tail);
    e.finish(head);
    return e;
}

/// The terms of two expansions in order of growing magnitude.
template <int M, int N> class Merge {
public:
    Merge(const Expansion<M> & e, const Expansion<N> & f) : e_(e), f_(f) {}
    bool empty() const { return i_ == e_.length && j_ == f_.length; }
    double next() {
        if (j_ == f_.length) return e_.term[i_++];
        if (i_ == e_.length) return f_.term[j_++];
        return std::fabs(e_.term[i_]) < std::fabs(f_.term[j_]) ? e_.term[i_++] : f_.term[j_++];
    }

private:
    const Expansion<M> & e_;
    const Expansion<N> & f_;
    int i_ = 0, j_ = 0;
};

// "Fast-Expansion-Sum" with zero elimination.
template <int M, int N> Expansion<M + N> sum(const Expansion<M> & e, const Expansion<N> & f) {
    Expansion<M + N> h;
    Merge<M, N> terms(e, f);
    double q = terms.next();
    if (!terms.empty()) {
        const double next = terms.next();
        const Two s = fastTwoSum(next, q);
        q = s.head;
        h.append(s.tail);
    }
    while (!terms.empty()) {
        const Two s = twoSum(q, terms.next());
        q = s.head;
        h.append(s.tail);
    }
    h.finish(q);
    return h;
}

template <int M, int N> Expansion<M + N> difference(const Expansion<M> & e, const Expansion<N> & f) {
    return sum(e, f.negated());
}

// "Scale-Expansion" with zero elimination.
template <int M> Expansion<2 * M> scale(const Expansion<M> & e, double b) {
    Expansion<2 * M> h;
    const Two bSplit = split(b);
    const Two first = twoProduct(e.term[0], b, bSplit);
    double q = first.head;
    h.append(first.tail);
    for (int i = 1; i < e.length; ++i) {
        const Two product = twoProduct(e.term[i], b, bSplit);
        const Two s = twoSum(q, product.tail);
        h.append(s.tail);
        const Two t = fastTwoSum(product.head, s.head);
        h.append(t.tail);
        q = t.head;
    }
    h.finish(q);
    return h;
}

/// The exact product, as a sum of scaled copies.
template <int M, int N> Expansion<2 * M * N> product(const Expansion<M> & e, const Expansion<N> & f) {
    Expansion<2 * M * N> total;
    total.finish(0.0);
    for (int i = 0; i < f.length; ++i) {
        const auto next = sum(total, scale(e, f.term[i]));
        total.length = std::min(next.length, 2 * M * N);
        std::copy_n(next.term.begin(), total.length, total.term.begin());
    }
    return total;
}

/// `a * b - c * d`, exactly.
Expansion<4> crossProduct(double a, double b, double c, double d) {
    const Two left = twoProduct(a, b), right = twoProduct(c, d);
    return difference(expansion(left.head, left.tail), expansion(right.head, right.tail));
}

/// `|x|² + |y|²` times `minor`, exactly.
Expansion<32> lifted(const Expansion<4> & minor, double x, double y) {
    return sum(scale(scale(minor, x), x), scale(scale(minor, y), y));
}

/// A corner relative to the fourth point: rounded differences and their rounding errors.
struct Relative {
    Relative(const Point & p, const Point & origin)
        : x(p.x - origin.x), y(p.y - origin.y), xTail(twoDiffTail(p.x, origin.x, x)),
          yTail(twoDiffTail(p.y, origin.y, y)) {}
    bool isExact() const { return xTail == 0.0 && yTail == 0.0; }
    /// True if products of two such components are exact.
    bool isCoarse() const { return isExact() && static_cast<float>(x) == x && static_cast<float>(y) == y; }
    double magnitude() const { return std::max(std::fabs(x), std::fabs(y)); }
    double lift() const { return x * x + y * y; }

    double x, y, xTail, yTail;
};

double cross(const Relative & p, const Relative & q) {
    return p.x * q.y - q.x * p.y;
}

double crossMagnitude(const Relative & p, const Relative & q) {
    return std::fabs(p.x * q.y) + std::fabs(q.x * p.y);
}

double orient2dExact(const Relative & a, const Relative & b) {
    const auto left = product(expansion(a.x, a.xTail), expansion(b.y, b.yTail));
    const auto right = product(expansion(a.y, a.yTail), expansion(b.x, b.xTail));
    return difference(left, right).sign();
}

/// True for the corners of a rectangle along the axes, in either direction.
bool isRectangle(const Point & a, const Point & b, const Point & c, const Point & d) {
    if (a.x == b.x) return c.x == d.x && b.y == c.y && d.y == a.y;
    return a.y == b.y && c.y == d.y && b.x == c.x && d.x == a.x;
}

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 Unsigned128;

/// A corner in units of a power of two, as whole numbers of at most 53 bits.
struct Lattice {
    /// False if a component is not a multiple of the unit.
    bool set(const Relative & p, double unitsPerLength) {
        const double scaledX = p.x * unitsPerLength, scaledY = p.y * unitsPerLength;
        x = static_cast<std::int64_t>(scaledX);
        y = static_cast<std::int64_t>(scaledY);
        return static_cast<double>(x) == scaledX && static_cast<double>(y) == scaledY;
    }
    Unsigned128 lift() const {
        return static_cast<Unsigned128>(static_cast<Int128>(x) * x + static_cast<Int128>(y) * y);
    }

    std::int64_t x, y;
};

inline Int128 cross(const Lattice & p, const Lattice & q) {
    return static_cast<Int128>(p.x) * q.y - static_cast<Int128>(q.x) * p.y;
}

/// A sum of products of 107 bits each, in two's complement.
class WideSum {
public:
    void add(Unsigned128 a, Int128 b) {
        const bool isNegative = b < 0;
        const auto magnitude = static_cast<Unsigned128>(isNegative ? -b : b);
        const Unsigned128 a0 = a & s_half, a1 = a >> 64, b0 = magnitude & s_half, b1 = magnitude >> 64;
        const Unsigned128 middle = a0 * b1 + a1 * b0;
        Unsigned128 low = a0 * b0;
        const Unsigned128 moved = middle << 64;
        Unsigned128 high = a1 * b1 + (middle >> 64);
        low += moved;
        high += low < moved;
        if (isNegative) {
            low = ~low + 1;
            high = ~high + (low == 0);
        }
        low_ += low;
        high_ += high + (low_ < low);
    }
    /// -1, 0 or 1.
    double sign() const {
        if (high_ >> 127 != 0) return -1.0;
        return high_ != 0 || low_ != 0 ? 1.0 : 0.0;
    }

private:
    static constexpr Unsigned128 s_half = ~std::uint64_t(0);

    Unsigned128 high_ = 0, low_ = 0;
};

/// The sign of the determinant in whole numbers, where the exact differences are coarse enough for it.
bool incircleOnLattice(const Relative & a, const Relative & b, const Relative & c, double & result) {
    const double extent = std::max({a.magnitude(), b.magnitude(), c.magnitude()});
    if (!(extent > 1e-70 && extent < 1e70)) return false;
    const double unitsPerLength = std::ldexp(1.0, 52 - std::ilogb(extent));
    Lattice p, q, r;
    if (!p.set(a, unitsPerLength) || !q.set(b, unitsPerLength) || !r.set(c, unitsPerLength)) return false;
    WideSum det;
    det.add(p.lift(), cross(q, r));
    det.add(q.lift(), cross(r, p));
    det.add(r.lift(), cross(p, q));
    result = det.sign();
    return true;
}

// Double-word arithmetic: M. Joldes, J.-M. Muller, V. Popescu, Tight and Rigorous Error Bounds for Basic
// Building Blocks of Double-Word Arithmetic, ACM Transactions on Mathematical Software 44, 2017, algorithms 6
// and 11, whose relative errors are below 4 and 8 times the square of `PredicateBounds::epsilon`.

inline Two addWords(const Two & a, const Two & b) {
    const Two heads = twoSum(a.head, b.head), tails = twoSum(a.tail, b.tail);
    const Two s = fastTwoSum(heads.head, heads.tail + tails.head);
    return fastTwoSum(s.head, tails.tail + s.tail);
}

inline Two multiplyWords(const Two & a, const Two & b) {
    const Two heads = twoProduct(a.head, b.head);
    return fastTwoSum(heads.head, heads.tail + (a.head * b.tail + a.tail * b.head));
}

/// `lift(a) * cross(b, c)` of the exact differences, in double words.
inline Two wordTerm(const Relative & a, const Relative & b, const Relative & c) {
    const Two ax{a.x, a.xTail}, ay{a.y, a.yTail};
    const Two lift = addWords(multiplyWords(ax, ax), multiplyWords(ay, ay));
    const Two back = multiplyWords({c.x, c.xTail}, {b.y, b.yTail});
    const Two minor = addWords(multiplyWords({b.x, b.xTail}, {c.y, c.yTail}), {-back.head, -back.tail});
    return multiplyWords(lift, minor);
}

/// Corners of a lattice that lie on a circle but for the rounding of their coordinates: the determinant is
/// small, but not for double words. The errors of a term add up to less than 40 times the square of epsilon
/// times its magnitude, those of the sums to less than 8. 0 where these do not tell the sign, and where words
/// might underflow.
double incircleByWords(const Relative & p, const Relative & q, const Relative & r, double magnitude) {
    const double extent = std::max({p.magnitude(), q.magnitude(), r.magnitude()});
    if (!(magnitude > 1e-100 && extent < 1e70)) return 0.0;
    const double det = addWords(addWords(wordTerm(p, q, r), wordTerm(q, r, p)), wordTerm(r, p, q)).head;
    const double bound = 64.0 * predicateBounds.epsilon * predicateBounds.epsilon * magnitude;
    return std::fabs(det) > bound ? det : 0.0;
}

/// First-order change of `lift(a) * cross(b, c)` by the rounding errors of the differences.
double tailTerm(const Relative & a, const Relative & b, const Relative & c) {
    return (a.x * a.x + a.y * a.y) * ((b.x * c.yTail + c.y * b.xTail) - (b.y * c.xTail + c.x * b.yTail)) +
           2.0 * (a.x * a.xTail + a.y * a.yTail) * (b.x * c.y - b.y * c.x);
}

/// `lift(a) * cross(b, c)` with the exact differences.
Expansion<512> exactTerm(const Relative & a, const Relative & b, const Relative & c) {
    const auto ax = expansion(a.x, a.xTail), ay = expansion(a.y, a.yTail);
    const auto bx = expansion(b.x, b.xTail), by = expansion(b.y, b.yTail);
    const auto cx = expansion(c.x, c.xTail), cy = expansion(c.y, c.yTail);
    const auto lift = sum(product(ax, ax), product(ay, ay));
    const auto minor = difference(product(bx, cy), product(cx, by));
    return product(lift, minor);
}

} // namespace

double orient2dAdapt(const Point & a, const Point & b, const Point & c, double magnitude) {
    const Relative p(a, c), q(b, c);
    if (p.isCoarse() && q.isCoarse()) return p.x * q.y - p.y * q.x;
    const Expansion<4> b4 = crossProduct(p.x, q.y, p.y, q.x);
    const bool exact = p.isExact() && q.isExact();
    if (exact) return b4.sign();

    double det = b4.estimate();
    if (std::fabs(det) >= predicateBounds.ccwB * magnitude) return det;
    det += (p.x * q.yTail + q.y * p.xTail) - (p.y * q.xTail + q.x * p.yTail);
    if (std::fabs(det) >= predicateBounds.ccwC * magnitude + predicateBounds.result * std::fabs(det))
        return det;
    return orient2dExact(p, q);
}

double incircleAdapt(const Point & a, const Point & b, const Point & c, const Point & d) {
    if (isRectangle(a, b, c, d)) return 0.0;
    const Relative p(a, d), q(b, d), r(c, d);
    const bool exact = p.isExact() && q.isExact() && r.isExact();
    double det;
    if (exact && incircleOnLattice(p, q, r, det)) return det;

    const double magnitude =
        crossMagnitude(q, r) * p.lift() + crossMagnitude(r, p) * q.lift() + crossMagnitude(p, q) * r.lift();
    det = p.lift() * cross(q, r) + q.lift() * cross(r, p) + r.lift() * cross(p, q);
    if (std::fabs(det) > predicateBounds.circleA * magnitude) return det;
    det = incircleByWords(p, q, r, magnitude);
    if (det != 0.0) return det;

    const auto stageB = sum(sum(lifted(crossProduct(q.x, r.y, r.x, q.y), p.x, p.y),
                                lifted(crossProduct(r.x, p.y, p.x, r.y), q.x, q.y)),
                            lifted(crossProduct(p.x, q.y, q.x, p.y), r.x, r.y));
    if (exact) return stageB.sign();

    det = stageB.estimate();
    if (std::fabs(det) >= predicateBounds.circleB * magnitude) return det;
    det += tailTerm(p, q, r) + tailTerm(q, r, p) + tailTerm(r, p, q);
    if (std::fabs(det) >= predicateBounds.circleC * magnitude + predicateBounds.result * std::fabs(det))
        return det;
    return sum(sum(exactTerm(p, q, r), exactTerm(q, r, p)), exactTerm(r, p, q)).sign();
}

} // namespace ZMT::CORE
