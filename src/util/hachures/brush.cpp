#include "util/hachures/brush.h"

#include <algorithm>
#include <cmath>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::UTIL {

namespace {

constexpr double s_white = 255.0;

bool checkSizes(double strokeSize, double innerStrokeSize) {
    NBX_CHECK(strokeSize >= 1.5, L"stroke size must be greater than 1.5");
    NBX_CHECK(innerStrokeSize > 0, L"inner stroke size not positive");
    NBX_CHECK(innerStrokeSize <= strokeSize, L"inner stroke size not less than stroke size");
    return strokeSize >= 1.5 && innerStrokeSize > 0 && innerStrokeSize <= strokeSize;
}

} // namespace

NBX::SO<NBX::Image> Brush::createRound(double strokeSize, double innerStrokeSize) {
    if (!checkSizes(strokeSize, innerStrokeSize)) return nullptr;
    const int edge = static_cast<int>(std::ceil(strokeSize));
    const double center = (edge - 1) / 2.0;
    NBX::SO<NBX::Image> brush(new NBX::MemoryImage(edge, edge, NBX::LS_Luminance));
    for (int y = 0; y < edge; ++y) {
        unsigned char * line = brush->lineComponentsU8(y);
        for (int x = 0; x < edge; ++x) {
            const double d2 = (x - center) * (x - center) + (y - center) * (y - center);
            if (d2 <= innerStrokeSize * innerStrokeSize / 4.0)
                line[x] = 0;
            else if (d2 >= strokeSize * strokeSize / 4.0)
                line[x] = 255;
            else
                line[x] = static_cast<unsigned char>((2.0 * std::sqrt(d2) - innerStrokeSize) /
                                                     (strokeSize - innerStrokeSize) * s_white);
        }
    }
    return brush;
}

void Brush::stamp(const NBX::Image & brush, int x, int y, NBX::Image & image) {
    const int left = x - brush.width() / 2, bottom = y - brush.height() / 2;
    const int beginX = std::max(0, left), endX = std::min(image.width(), left + brush.width());
    const int beginY = std::max(0, bottom), endY = std::min(image.height(), bottom + brush.height());
    for (int line = beginY; line < endY; ++line) {
        const unsigned char * from = brush.lineComponentsU8(line - bottom) + (beginX - left);
        unsigned char * to = image.lineComponentsU8(line);
        for (int column = beginX; column < endX; ++column, ++from)
            to[column] = std::min(to[column], *from);
    }
}

double Brush::inkWidth(const NBX::Image & brush) {
    const unsigned char * line = brush.lineComponentsU8(brush.height() / 2);
    double ink = 0.0;
    for (int x = 0; x < brush.width(); ++x)
        ink += 1.0 - line[x] / s_white;
    return ink;
}

} // namespace ZMT::UTIL
