// Reads the raster, builds the tree, and walks it once for the mesh and once for the report, which number the
// nodes alike. Both files are opened before the work begins, are written node by node, and get their names
// when all has gone well.

#include "commands.h"
#include "peakmemory.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "landscape/commandoptions.h"
#include "landscape/outputfiles.h"
#include "landscape/step.h"
#include "landscape/terraininput.h"
#include "program/stage.h"

#include <nbx/data/atomicfilewriter.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/inspect/patchmesh.h>

namespace {

using ZMT::CORE::GeometryPatch;
using ZMT::CORE::PatchMesh;

struct LodOptions {
    std::string terrain;
    TreeOptions tree;
    unsigned seed = 1;
    std::string report;
    std::vector<std::string> mesh; ///< level and file
    bool isRightHanded = false;    ///< the mesh
    TerrainReading reading;
};

/// A text file that appears whole, written in large pieces.
class TextFile {
public:
    explicit TextFile(const std::string & path) : writer_(path) {}

    void write(const std::string & text) {
        pending_ += text;
        if (pending_.size() > s_piece) flush();
    }
    void flush() {
        writer_.write(pending_.data(), pending_.size());
        pending_.clear();
    }
    void commit() {
        flush();
        writer_.commit();
    }

private:
    static constexpr std::size_t s_piece = 1 << 20;

    NBX::AtomicFileWriter writer_;
    std::string pending_;
};

unsigned countNodes(const GeometryPatch & patch) {
    unsigned nodes = 1;
    for (unsigned i = 0; i < patch.children(); ++i)
        nodes += countNodes(*patch.child(i));
    return nodes;
}

/// The level of the nodes farthest from the root, which has the level 0.
unsigned lastLevel(const GeometryPatch & patch) {
    unsigned level = 0;
    for (unsigned i = 0; i < patch.children(); ++i)
        level = std::max(level, 1 + lastLevel(*patch.child(i)));
    return level;
}

/// Visits the nodes parents first, and numbers them in this order. The user may cancel.
class NodeWalk {
public:
    using Visit = std::function<void(const GeometryPatch &, unsigned id, std::optional<unsigned> parent,
                                     unsigned level)>;

    static void run(const std::string & title, const GeometryPatch & root, const Visit & visit) {
        const Stage stage(L"write");
        NodeWalk walk(title, root, visit);
        walk.visit(root, {}, 0);
        walk.step_.finish();
    }

private:
    NodeWalk(const std::string & title, const GeometryPatch & root, const Visit & visit)
        : visit_(visit), step_(title, countNodes(root)) {}

    void visit(const GeometryPatch & patch, std::optional<unsigned> parent, unsigned level) {
        const unsigned id = next_++;
        step_.goOn(id);
        visit_(patch, id, parent, level);
        for (unsigned i = 0; i < patch.children(); ++i)
            visit(*patch.child(i), id, level + 1);
    }

    const Visit & visit_;
    Step step_;
    unsigned next_ = 0;
};

nlohmann::ordered_json describeNode(const GeometryPatch & patch, unsigned id, std::optional<unsigned> parent,
                                    unsigned level) {
    const GeometryPatch::Description description = patch.description();
    nlohmann::ordered_json node;
    node["id"] = id;
    node["parent"] = parent ? nlohmann::ordered_json(*parent) : nlohmann::ordered_json();
    node["level"] = level;
    node["kind"] = description.kind;
    node["x"] = description.cells.getX();
    node["y"] = description.cells.getY();
    node["w"] = description.cells.getWidth();
    node["h"] = description.cells.getHeight();
    node["error"] = patch.approximationError();
    node["wall"] = patch.wall();
    node["vertices"] = description.vertices;
    node["triangles"] = description.triangles;
    return node;
}

/// One node at a time, since a tree may have millions.
void writeReport(TextFile & file, const GeometryPatch & root, double buildMilliseconds) {
    file.write("{\"build_ms\": " + nlohmann::json(buildMilliseconds).dump() +
               ",\n \"peak_rss_bytes\": " + std::to_string(peakResidentBytes()) + ",\n \"nodes\": [");
    NodeWalk::run(
        "writing the report", root,
        [&](const GeometryPatch & patch, unsigned id, std::optional<unsigned> parent, unsigned level) {
            file.write((id == 0 ? "\n" : ",\n") + describeNode(patch, id, parent, level).dump());
        });
    file.write("\n]}\n");
    file.flush();
}

/// The surfaces of all nodes of a level, and of leaves above it.
void writeMesh(TextFile & file, const GeometryPatch & root, unsigned wantedLevel, bool isRightHanded) {
    std::uint64_t first = 1;
    // Mirrored, triangles keep the side that they are seen from by turning the other way.
    const double northwards = isRightHanded ? -1.0 : 1.0;
    const auto writePatch = [&](const GeometryPatch & patch, unsigned id, std::optional<unsigned>,
                                unsigned level) {
        if (level > wantedLevel || (level < wantedLevel && patch.children() > 0)) return;
        const PatchMesh mesh(patch);
        file.write("g " + std::to_string(id) + "\n");
        char line[128];
        for (unsigned v = 0; v < mesh.vertices(); ++v) {
            const auto p = mesh.geoPosition(v);
            std::snprintf(line, sizeof line, "v %.17g %.17g %.17g\n", p.x, p.y, northwards * p.z);
            file.write(line);
        }
        mesh.forEachTriangle([&](unsigned a, unsigned b, unsigned c) {
            if (isRightHanded) std::swap(b, c);
            std::snprintf(line, sizeof line, "f %" PRIu64 " %" PRIu64 " %" PRIu64 "\n", first + a, first + b,
                          first + c);
            file.write(line);
        });
        first += mesh.vertices();
    };
    NodeWalk::run("writing the mesh", root, writePatch);
    file.flush();
}

unsigned parseLevel(const std::string & text) {
    char * end = nullptr;
    const unsigned long level = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || *end != '\0' || level > 1000)
        throw UsageError("--mesh: the level must be a number from 0 to 1000: " + text);
    return static_cast<unsigned>(level);
}

void runLod(const LodOptions & options) {
    checkTreeOptions(options.tree);
    if (isBuiltTerrain(options.terrain))
        throw UsageError("--terrain: " + options.terrain + " is built; give the heights");
    if (options.reading.native && !options.reading.crs.empty())
        throw UsageError("--native keeps the cells, and --crs makes others; leave one of them out");
    if (options.isRightHanded && options.mesh.empty())
        throw UsageError("--right-handed is for --mesh; leave it out, or give a mesh");
    const unsigned meshLevel = options.mesh.empty() ? 0 : parseLevel(options.mesh[0]);
    checkOutputs({{"--terrain", options.terrain}},
                 {{"--report", options.report}, {"--mesh", options.mesh.empty() ? "" : options.mesh[1]}});
    TextFile report(options.report);
    std::optional<TextFile> meshFile;
    if (!options.mesh.empty()) meshFile.emplace(options.mesh[1]);

    const auto raster = readTerrainRaster(options.terrain, options.reading);
    const auto grid = makeGrid(raster);
    std::srand(options.seed);
    double milliseconds = 0.0;
    const auto root = buildTree(grid, options.tree, milliseconds);
    if (meshLevel > lastLevel(*root))
        throw UsageError("--mesh: the tree has the levels 0 to " + std::to_string(lastLevel(*root)) + ": " +
                         options.mesh[0]);
    if (meshFile) writeMesh(*meshFile, *root, meshLevel, options.isRightHanded);
    writeReport(report, *root, milliseconds);
    if (meshFile) meshFile->commit();
    report.commit();
}

} // namespace

void addLodCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("lod", "Builds the tree of levels of detail of a height raster and describes it.");
    const auto options = std::make_shared<LodOptions>();
    command->add_option("--terrain", options->terrain, "Height raster")->required();
    addTreeOptions(*command, options->tree);
    command->add_option("--seed", options->seed, "Seed of the random choices")->capture_default_str();
    command->add_option("--report", options->report, "JSON file with all nodes")->required();
    command
        ->add_option(
            "--mesh", options->mesh,
            "Level of the tree, and OBJ file for the surface of its nodes and of leaves above it: in "
            "map coordinates, x to the east, y up and z to the north, which is left-handed")
        ->expected(2)
        ->type_name("LEVEL FILE");
    command->add_flag("--right-handed", options->isRightHanded,
                      "Mesh with z to the south, as most programs for models expect it");
    command->add_flag("--native", options->reading.native,
                      "Keep the raster's own cells, even where they are degrees");
    addVoidOption(*command, options->reading.fillVoids);
    addCrsOption(*command, options->reading.crs);
    addOutputNote(*command);
    command->callback([options] { runLod(*options); });
}
