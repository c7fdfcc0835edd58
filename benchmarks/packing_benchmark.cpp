// Packing rectangles, next to stb_rect_pack on the same ones: a strip of 1.03 times the root of their area,
// whose height is what each of both needs, and pages of one size until all are placed. `fill` is the share of
// the used area that is covered. stb_rect_pack is asked again for each page with what is left, as its users
// do.

#include <nbx/image/atlas/textureatlascreator.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#define STB_RECT_PACK_IMPLEMENTATION
#include <stb_rect_pack.h>

#include <nbx/container/sequence/array.h>
#include <nbx/image/image.h>

namespace {

using namespace NBX;
using Size = std::pair<unsigned, unsigned>;

constexpr unsigned s_rectangles = 100000;
/// Higher than any of both gets.
constexpr unsigned s_openEnd = 1U << 24;

const std::vector<Size> & sizes() {
    static const std::vector<Size> result = [] {
        std::mt19937 random(1);
        std::uniform_int_distribution<unsigned> side(4, 128);
        std::vector<Size> made;
        for (unsigned i = 0; i < s_rectangles; ++i) {
            const unsigned width = side(random);
            made.emplace_back(width, side(random));
        }
        return made;
    }();
    return result;
}

double areaOfAll() {
    double area = 0.0;
    for (const Size & size : sizes())
        area += double(size.first) * size.second;
    return area;
}

unsigned stripWidth() {
    return static_cast<unsigned>(1.03 * std::sqrt(areaOfAll()));
}

std::vector<stbrp_rect> rectanglesOfStb() {
    std::vector<stbrp_rect> rectangles;
    for (const Size & size : sizes()) {
        stbrp_rect rectangle = {};
        rectangle.w = static_cast<stbrp_coord>(size.first);
        rectangle.h = static_cast<stbrp_coord>(size.second);
        rectangles.push_back(rectangle);
    }
    return rectangles;
}

void packWithStb(std::vector<stbrp_rect> & rectangles, unsigned width, unsigned height) {
    std::vector<stbrp_node> nodes(width);
    stbrp_context context;
    stbrp_init_target(&context, static_cast<int>(width), static_cast<int>(height), nodes.data(),
                      static_cast<int>(width));
    stbrp_pack_rects(&context, rectangles.data(), static_cast<int>(rectangles.size()));
}

/// An image of a size, without pixels.
class SizeImage : public Image {
    NBX_TEMPLATE_CLASS(SizeImage, Image)
public:
    explicit SizeImage(const Size & size) : Image(LS_RGB, UInt8), size_(size) {}
    int width() const override { return static_cast<int>(size_.first); }
    int height() const override { return static_cast<int>(size_.second); }
    const void * lineComponents(int) const override { return nullptr; }

private:
    Size size_;
};

/// The room that the areas take up is told; overlaps end the program.
unsigned checkedHeight(const Iterator<Area> & areas, unsigned width) {
    unsigned height = 0;
    std::vector<Area> sorted(areas.begin(), areas.end());
    for (const Area & area : sorted)
        height = std::max(height, area.getY() + area.getHeight());
    std::vector<bool> covered(std::size_t(width) * height);
    for (const Area & area : sorted)
        for (unsigned y = 0; y < area.getHeight(); ++y)
            for (unsigned x = 0; x < area.getWidth(); ++x) {
                auto cell = covered[(std::size_t(area.getY()) + y) * width + std::size_t(area.getX()) + x];
                if (cell) std::abort();
                cell = true;
            }
    return height;
}

void strip(benchmark::State & state) {
    const SO<NonPersistentArray<Size>> list(new NonPersistentArray<Size>(sizes()));
    SO<Iterator<Area>> areas;
    for (auto _ : state)
        areas = TextureAtlasCreator::createSubImagePlacement(list.get(), stripWidth(), s_openEnd);
    if (!areas) return state.SkipWithError("no placement");
    state.counters["fill"] = areaOfAll() / stripWidth() / checkedHeight(*areas, stripWidth());
}

void stripOfStb(benchmark::State & state) {
    std::vector<stbrp_rect> rectangles;
    for (auto _ : state) {
        state.PauseTiming();
        rectangles = rectanglesOfStb();
        state.ResumeTiming();
        packWithStb(rectangles, stripWidth(), s_openEnd);
    }
    int height = 0;
    for (const stbrp_rect & rectangle : rectangles)
        height = std::max(height, rectangle.y + rectangle.h);
    state.counters["fill"] = areaOfAll() / stripWidth() / height;
}

void pages(benchmark::State & state) {
    const auto side = static_cast<unsigned>(state.range(0));
    const SO<Array<SO<Image>>> images(new Array<SO<Image>>);
    for (const Size & size : sizes())
        images->append(new SizeImage(size));
    unsigned used = 0;
    for (auto _ : state)
        used = TextureAtlasCreator(images.get(), side, side).atlases();
    state.counters["pages"] = used;
    state.counters["fill"] = areaOfAll() / used / side / side;
}

void pagesOfStb(benchmark::State & state) {
    const auto side = static_cast<unsigned>(state.range(0));
    unsigned used = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<stbrp_rect> left = rectanglesOfStb();
        state.ResumeTiming();
        for (used = 0; !left.empty(); ++used) {
            packWithStb(left, side, side);
            std::erase_if(left, [](const stbrp_rect & rectangle) { return rectangle.was_packed != 0; });
        }
    }
    state.counters["pages"] = used;
    state.counters["fill"] = areaOfAll() / used / side / side;
}

BENCHMARK(strip)->Unit(benchmark::kMillisecond);
BENCHMARK(stripOfStb)->Unit(benchmark::kMillisecond);
BENCHMARK(pages)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(pagesOfStb)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
