#include "nbx/gl/mesh/linesetpaintergl.h"

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/lineset.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;
using Point = Vector3Base<double>;

class LineSetPainterGLTest : public GLFixture {
protected:
    /// The centre of a pixel in the cube from -1 to 1.
    static double at(int pixel) { return (pixel + 0.5) / 32.0 - 1.0; }

    SO<LineSet> newSquare(LineSet::PrimitiveType type) {
        const SO<Array<Point>> corners(new Array<Point>);
        for (const auto & [x, y] :
             {std::pair(10, 10), std::pair(40, 10), std::pair(40, 40), std::pair(10, 40)})
            corners->append(Point(at(x), at(y), 0.0));
        return SO<LineSet>(new LineSet(type, corners));
    }
    /// Which sides of the square are drawn: bottom, right, top, left.
    std::string sides(const SO<LineSet> & set) {
        root->clear();
        root->append(set.get());
        const SO<Image> image = draw();
        std::string result;
        for (const auto & [x, y] :
             {std::pair(25, 10), std::pair(40, 25), std::pair(25, 40), std::pair(10, 25)})
            result += pixel(image, x, y)[0] > 0 ? '#' : '.';
        return result;
    }
};

TEST_F(LineSetPainterGLTest, DrawsEachKindOfLine) {
    EXPECT_EQ("#.#.", sides(newSquare(LineSet::PT_Lines)));
    EXPECT_EQ("###.", sides(newSquare(LineSet::PT_LineStrip)));
    EXPECT_EQ("####", sides(newSquare(LineSet::PT_LineLoop)));
}

TEST_F(LineSetPainterGLTest, UsesColors) {
    const auto set = newSquare(LineSet::PT_Lines);
    set->setColorIterator(SO<Array<Color>>(new Array<Color>(4, Color(0.0, 1.0, 0.0, 1.0))));
    root->append(set.get());
    const std::vector<int> before = stateOfGL();
    EXPECT_EQ((std::array<int, 4>{0, 255, 0, 255}), pixel(draw(), 25, 10));
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(LineSetPainterGLTest, DrawsNothingOfAnEmptySet) {
    EXPECT_EQ("....", sides(SO<LineSet>(new LineSet)));
}

} // namespace
