// Uses the installed package the way another project does: something of every component that is there.

#include <cstdint>
#include <cstdio>
#include <vector>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/scene/shape/box.h>

#ifdef ZMT_WITH_raster
#include <zmt/raster/simplerasterdata.h>
#endif
#ifdef ZMT_WITH_core
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h> // its path before there were rooms
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#endif

namespace {

bool g_passed = true;

void expect(bool holds, const char * what) {
    if (holds) return;
    std::fprintf(stderr, "consumer: %s\n", what);
    g_passed = false;
}

void useEngine() {
    using Point = NBX::Vector3Base<double>;
    const NBX::SO<NBX::Box> box(new NBX::Box(Point(1.0, 2.0, 3.0), Point(4.0, 6.0, 8.0)));
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*box);
    const NBX::SO<NBX::SharedObj> copy = NBX::ObjectStreamReader(bytes.data(), bytes.size()).read();
    const auto * read = dynamic_cast<NBX::Box *>(copy.get());
    expect(read && read->boundingBox() == box->boundingBox(), "a box is read as it was written");
}

#ifdef ZMT_WITH_raster
using Raster = ZMT::RASTER::SimpleRasterData<float>;

/// `cells` by `cells` heights; the one in the middle is 5 above the flat rest.
NBX::SO<Raster> hill(unsigned cells) {
    const NBX::SO<Raster> raster(new Raster(cells, cells, 0.0, 0.0, 1.0, 1.0, false, 0.0F));
    raster->setValue(cells / 2, cells / 2, 5.0F);
    return raster;
}

void useRaster() {
    const NBX::SO<Raster> raster = hill(3);
    expect(raster->maxValue() == 5.0, "the hill is the highest cell");
    expect(raster->value(1.5, 1.0) == 2.5, "heights between cells are interpolated");
}
#endif

#ifdef ZMT_WITH_core
void useCore() {
    const NBX::SO<ZMT::CORE::GridData> small(new ZMT::CORE::GridData(hill(3).get()));
    expect(small->vertices() == 9, "a vertex for each cell");
    const auto leaf = ZMT::CORE::CreateGeometryTree::create(small.get(), 50);
    expect(leaf && leaf->children() == 0, "a small grid is one patch");

    const NBX::SO<ZMT::CORE::GridData> large(new ZMT::CORE::GridData(hill(33).get()));
    const auto root = ZMT::CORE::CreateGeometryTree::create(large.get(), 50);
    expect(root && root->children() > 0, "a large grid is divided");
    for (unsigned i = 0; root && i < root->children(); ++i)
        expect(root->child(i)->parent() == root, "children know their parent");
}
#endif

} // namespace

int main() {
    useEngine();
#ifdef ZMT_WITH_raster
    useRaster();
#endif
#ifdef ZMT_WITH_core
    useCore();
#endif
    return g_passed ? 0 : 1;
}
