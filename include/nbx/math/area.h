#pragma once

namespace NBX {

/// Integer rectangle, in cells or pixels.
class Area {
public:
    Area() = default;
    Area(int x, int y, unsigned width, unsigned height) : x_(x), y_(y), width_(width), height_(height) {}

    int getX() const { return x_; }
    int getY() const { return y_; }
    unsigned getWidth() const { return width_; }
    unsigned getHeight() const { return height_; }
    void setX(int x) { x_ = x; }
    void setY(int y) { y_ = y; }
    void setWidth(unsigned width) { width_ = width; }
    void setHeight(unsigned height) { height_ = height; }

    bool operator==(const Area &) const = default;

private:
    int x_ = 0, y_ = 0;
    unsigned width_ = 0, height_ = 0;
};

} // namespace NBX
