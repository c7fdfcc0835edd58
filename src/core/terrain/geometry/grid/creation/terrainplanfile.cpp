// A head of 32 bytes: magic, version, length of the description, its hash. Then the description, zeros up to
// a multiple of 16, and the heights, level by level, row by row, as floats, and behind each row its hash.

#include "terrainplanfile.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include <nbx/object/exception.h>

#include "contenthash.h"
#include "core/terrain/geometry/grid/model/tileblock.h"
#include "recordbuffer.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr char s_planMagic[9] = "ZMT-PLAN";
constexpr std::uint32_t s_planVersion = 2;

struct Head {
    char magic[8];
    std::uint32_t version, zero;
    std::uint64_t descriptionSize, descriptionHash;
};
static_assert(sizeof(Head) == 32);

std::uint64_t hashOf(const std::vector<char> & bytes) {
    return ContentHash::of(bytes.data(), bytes.size());
}

[[noreturn]] void throwDamaged(const NBX::File & file) {
    throw NBX::InputException(L"the plan is damaged or cut off; make it anew", file.fullName());
}

bool isInside(const LatticeArea & area, const LatticeArea & limits) {
    return limits.minX <= area.minX && area.minX <= area.maxX && area.maxX <= limits.maxX &&
           limits.minY <= area.minY && area.minY <= area.maxY && area.maxY <= limits.maxY;
}

} // namespace

std::uint64_t TerrainPlanFile::id() const {
    return hashOf(description());
}

std::uint32_t TerrainPlanFile::firstRowOf(std::uint32_t part, std::uint32_t parts) const {
    double all = 0.0, before = 0.0;
    for (const std::uint64_t amount : work)
        all += static_cast<double>(amount);
    const double wanted = all * (part - 1.0) / parts;
    std::uint32_t row = 0;
    // A row goes to the share in which its middle lies.
    while (part > 1 && row < work.size() && (part > parts || before + 0.5 * double(work[row]) < wanted))
        before += static_cast<double>(work[row++]);
    return rows().rows(0).first + row;
}

std::uint64_t TerrainPlanFile::levelsStart() const {
    const std::uint64_t end = sizeof(Head) + description().size();
    return end + TileBlock::padding(end);
}

std::vector<char> TerrainPlanFile::description() const {
    RecordWriter out;
    out.put(header);
    out.put(sourceDepth);
    out.put(sourceArea);
    out.put(area);
    out.put(static_cast<std::uint32_t>(resampling));
    out.put(static_cast<std::uint32_t>(createsShading));
    out.put(static_cast<std::uint32_t>(storesNormals));
    out.put(ambientLight);
    out.put(light);
    out.put(static_cast<std::uint32_t>(hasWkt));
    out.putText(wkt);
    out.put(static_cast<std::uint32_t>(rasters.size()));
    for (const std::string & raster : rasters)
        out.putText(raster);
    out.putText(oldTerrain);
    out.putText(system);
    out.put(options);
    out.put(origin);
    for (const std::uint64_t amount : work)
        out.put(amount);
    return out.bytes();
}

void TerrainPlanFile::takeDescription(const std::vector<char> & bytes) {
    RecordReader in(bytes);
    header = in.get<FileHeader>();
    sourceDepth = in.get<std::uint32_t>();
    sourceArea = in.get<LatticeArea>();
    area = in.get<LatticeArea>();
    resampling = static_cast<HeightResampling>(in.get<std::uint32_t>());
    createsShading = in.get<std::uint32_t>() != 0;
    storesNormals = in.get<std::uint32_t>() != 0;
    ambientLight = in.get<double>();
    for (double & coordinate : light)
        coordinate = in.get<double>();
    hasWkt = in.get<std::uint32_t>() != 0;
    wkt = in.getText();
    for (std::uint32_t left = in.get<std::uint32_t>(); left > 0; --left)
        rasters.push_back(in.getText());
    oldTerrain = in.getText();
    system = in.getText();
    options = in.get<std::uint64_t>();
    origin = in.get<std::uint64_t>();
    while (in.left() > 0)
        work.push_back(in.get<std::uint64_t>());
}

/// Whether its numbers can be those of a terrain.
bool TerrainPlanFile::isSound() const {
    if (header.tileLevel > maxTileLevel || header.treeDepth > maxExtentLevel - header.tileLevel) return false;
    const std::uint32_t last = 1U << (header.tileLevel + header.treeDepth);
    const auto isSize = [](double size) { return std::isfinite(size) && size > 0.0; };
    return isInside(area, {0, 0, last, last}) && isInside(sourceArea, area) &&
           sourceDepth <= header.treeDepth && isSize(header.cellSizeX) && isSize(header.cellSizeY) &&
           isSize(header.heightScale) && std::isfinite(header.minHeight) && std::isfinite(header.originX) &&
           std::isfinite(header.originY) && std::isfinite(ambientLight) &&
           std::all_of(std::begin(light), std::end(light), [](double x) { return std::isfinite(x); }) &&
           resampling <= HeightResampling::Average && rows().rows(0).count() == work.size();
}

void TerrainPlanFile::write(NBX::File & file) const {
    const std::vector<char> bytes = description();
    Head head{};
    std::memcpy(head.magic, s_planMagic, sizeof head.magic);
    head.version = s_planVersion;
    head.descriptionSize = bytes.size();
    head.descriptionHash = hashOf(bytes);
    file.seek(0);
    file.write(&head, sizeof head);
    file.write(bytes.data(), bytes.size());
}

bool TerrainPlanFile::isMagic(const char * start) {
    return std::memcmp(start, s_planMagic, sizeof(Head::magic)) == 0;
}

TerrainPlanFile TerrainPlanFile::read(NBX::File & file) {
    Head head{};
    file.seek(0);
    if (file.read(&head, sizeof head) != sizeof head || !isMagic(head.magic))
        throw NBX::InputException(L"is no plan of a terrain; choose one that --plan wrote", file.fullName());
    if (head.version != s_planVersion)
        throw NBX::InputException(L"is a plan of another version of this program; make it anew",
                                  file.fullName());
    if (head.zero != 0 || head.descriptionSize > file.size() - sizeof head) throwDamaged(file);
    std::vector<char> bytes(head.descriptionSize);
    if (file.read(bytes.data(), bytes.size()) != bytes.size() || hashOf(bytes) != head.descriptionHash)
        throwDamaged(file);
    TerrainPlanFile plan;
    try {
        plan.takeDescription(bytes);
    } catch (const NBX::IOException &) {
        throwDamaged(file);
    }
    if (!plan.isSound() ||
        file.size() !=
            plan.levelsStart() + HeightLevels(plan.sourceArea, plan.header.treeDepth).guardedBytes())
        throwDamaged(file);
    return plan;
}

HeightLevels TerrainPlanFile::levels(const NBX::SO<NBX::File> & file) const {
    HeightLevels result(sourceArea, header.treeDepth);
    result.keepGuarded(file, levelsStart());
    return result;
}

} // namespace ZMT::CORE::GRID
