// The scene is read as those read it that draw it. Its trees are walked, and what nodes say of blocks is
// gathered by paging file; then each of these is read from its beginning to its end, block by block, so that
// it may be larger than memory.

#include <zmt/util/validation/cityvalidation.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <unordered_set>
#include <vector>

#include <nbx/data/datasubresource.h>
#include <nbx/data/locator.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/jpgdecompressorthread.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "checkedfile.h"
#include "core/texturedtriangles/modelnumber.h"

namespace ZMT::UTIL {

namespace {

using CORE::CityModels;
using CORE::RenderNode;
using CORE::RenderTree;
using CORE::TexturedTriangleTree;
using NBX::SO;
using StreamTexture = CORE::TTTMemoryController::StreamTexture;
using CityTextureFormat = TexturedTriangleTree::TextureFormat;
using MeshData = NBX::MappedVertexAttributeDataGL;

constexpr std::uint64_t s_sizeBytes = 8;             ///< in front of a source texture
constexpr std::uint64_t s_chunk = 16U << 20U;        ///< of what is only read
constexpr std::uint64_t s_largestJpeg = 1ULL << 30U; ///< of a block
constexpr double s_boxTolerance = 1e-3;              ///< of boxes, to their size

/// A texture in a paging file.
struct Block {
    std::uint64_t offset, size;
    bool isSource;
    CityTextureFormat format;
    int atlasSize;
    std::string name; ///< "the atlas of node 7"

    bool isSame(const Block & other) const {
        return offset == other.offset && size == other.size && isSource == other.isSource;
    }
};
/// By the names of their files.
using Blocks = std::map<std::wstring, std::vector<Block>>;

bool isInside(const NBX::Bounds & box, const NBX::Bounds & outer) {
    if (!box.isDefined()) return true;
    if (!outer.isDefined()) return false;
    const NBX::Bounds around = outer.expand(s_boxTolerance * (1.0 + outer.diagonal().length()));
    return around.containsPoint(box.getLLF()) && around.containsPoint(box.getURB());
}

bool isFinite(const CityModels::Point & p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

/// Whether a buffer of vertices numbers `models` of them, and those without one.
bool isNumbering(const MeshData::Buffer & numbers, std::size_t vertices, std::size_t models) {
    if (numbers.components() != 1 || numbers.count() != vertices) return false;
    for (unsigned i = 0; i < numbers.count(); ++i) {
        const double number = numbers.value(i, 0);
        const bool isNumber = number >= 0.0 && number < double(models) && number == std::floor(number);
        if (!isNumber && number != CORE::ModelNumber::none) return false;
    }
    return true;
}

/// What is wrong with a tree, apart from its blocks.
class CheckedTree {
public:
    CheckedTree(const TexturedTriangleTree & tree, unsigned number, std::size_t models,
                ValidationReport & report, Blocks & blocks)
        : tree_(tree), name_("tree " + std::to_string(number)), models_(models), report_(report),
          blocks_(blocks) {}

    void check() {
        if (const auto & plain = tree_.getUntexturedGeometry()) checkMesh(*plain, "without texture");
        if (!tree_.getRenderTree()) return;
        for (int layer = 0; layer < tree_.getNumberOfLayers(); ++layer) {
            checkRootAtlas(layer);
            blocks_[tree_.getPagingFile(layer)]; // also where no node has a block
        }
        if (tree_.getNumberOfLayers() == 0) fault("has nodes, and no paging file");
        walk(*tree_.getRenderTree());
    }

private:
    using Node = RenderTree::NodePointer;
    struct Waiting {
        Node node;
        const CORE::RenderNode * parent;
        const NBX::MappedVertexAttributeDataGL * batch;
        std::uint64_t depth;
    };

    void fault(const std::string & what) { report_.add(0, name_ + " " + what); }

    void checkMesh(const NBX::MappedVertexAttributeShapeGL & mesh, const std::string & name) {
        if (!mesh.isDrawable()) return fault("has triangles " + name + " that cannot be drawn");
        const NBX::Bounds box = mesh.boundingBox();
        if (box.isDefined() && !(isFinite(box.getLLF()) && isFinite(box.getURB())))
            fault("has triangles " + name + " that stand nowhere");
        checkNumbers(mesh.data().get(), name);
    }

    /// Meshes may share their vertices.
    void checkNumbers(const MeshData * data, const std::string & name) {
        if (!data || !numbered_.insert(data).second) return;
        const auto numbers = data->buffer(CORE::ModelNumber::bufferName());
        if (numbers && !isNumbering(*numbers, data->vertices(), models_))
            fault("has triangles " + name + " of models that the table does not have");
    }

    void checkRootAtlas(int layer) {
        const auto atlas = NBX::soCast<StreamTexture>(tree_.getRootAtlas(layer));
        if (!atlas || !atlas->data() || !atlas->isComplete())
            fault("lacks the atlas of its root in layer " + std::to_string(layer));
        else if (atlas->width() != tree_.getAtlasSize() || atlas->height() != tree_.getAtlasSize())
            fault("has an atlas of its root of another size than its atlases have");
    }

    void walk(RenderTree & nodes) {
        std::vector<Waiting> stack{{nodes.root(), nullptr, nullptr, 1}};
        while (!stack.empty()) {
            Waiting next = stack.back();
            stack.pop_back();
            const RenderNode & node = next.node->content;
            if (node.vertexData) next.batch = node.vertexData.get();
            report_.levels = std::max(report_.levels, next.depth);
            const std::string name = "node " + std::to_string(next.node.identifier());
            checkNode(node, name, next, nodes.hasChildren(next.node));
            for (unsigned i = 0; nodes.hasChildren(next.node) && i < RenderTree::s_childrenOfNode; ++i)
                stack.push_back({nodes.child(next.node, i), &node, next.batch, next.depth + 1});
        }
    }

    void checkNode(const RenderNode & node, const std::string & name, const Waiting & place, bool isInner) {
        if (place.parent && !isInside(node.bounds, place.parent->bounds))
            fault(name + " lies outside of the one above it");
        if (!std::isfinite(node.minDistance) || node.minDistance < 0.0)
            fault(name + " has no distance from which it suffices");
        checkVertices(node, name, place.batch);
        if (!isInner) checkSources(node, name);
        if (place.parent && node.bounds.isDefined()) addAtlases(node, name);
    }

    void checkVertices(const RenderNode & node, const std::string & name,
                       const NBX::MappedVertexAttributeDataGL * batch) {
        if (batch && node.vertexRangeStart >= 0 && node.numVertices >= 0) {
            const std::uint64_t end = std::uint64_t(node.vertexRangeStart) + std::uint64_t(node.numVertices);
            if (end > batch->vertices()) fault(name + " draws vertices that its batch does not have");
        }
        checkNumbers(node.vertexData.get(), "in " + name);
        for (const auto & mesh : node.originalGeometry)
            if (mesh) checkNumbers(mesh->data().get(), "in " + name);
        if (!node.triangles) return;
        checkNumbers(node.triangles->data().get(), "in " + name);
        if (!node.triangles->isDrawable())
            fault(name + " has triangles that cannot be drawn");
        else if (!isInside(node.triangles->boundingBox(), node.bounds))
            fault(name + " has triangles outside of its box");
    }

    /// None where all textures repeat.
    void checkWrapModes(const RenderNode & node, const std::string & name, std::size_t textures) {
        const std::vector<int> & modes = node.originalTexturesWrapModes;
        const bool areModes = std::all_of(modes.begin(), modes.end(), [](int mode) {
            return mode >= NBX::TextureGL::WM_Repeat && mode <= NBX::TextureGL::WM_MirroredRepeat;
        });
        if (!modes.empty() && modes.size() != 2 * textures)
            fault(name + " has " + std::to_string(modes.size()) + " wrap modes for " +
                  std::to_string(textures) + " source textures");
        else if (!areModes)
            fault(name + " has wrap modes that do not exist");
    }

    void checkSources(const RenderNode & node, const std::string & name) {
        const std::size_t count = node.originalTextures ? node.originalTextures->size() : 0;
        const std::size_t places = node.originalTexturesBlockPositions.size();
        if (node.originalGeometry.size() != count || places != count ||
            node.originalTexturesBlockSizes.size() != count)
            return fault(name + " has " + std::to_string(count) + " source textures, " +
                         std::to_string(node.originalGeometry.size()) + " meshes and " +
                         std::to_string(places) + " blocks for them");
        checkWrapModes(node, name, count);
        for (std::size_t i = 0; i < count; ++i)
            add(0, {node.originalTexturesBlockPositions[i], node.originalTexturesBlockSizes[i], true,
                    tree_.getLayerFormat(0), 0, "source texture " + std::to_string(i) + " of " + name});
    }

    void addAtlases(const RenderNode & node, const std::string & name) {
        const auto layers = static_cast<std::size_t>(tree_.getNumberOfLayers());
        if (node.blockPositions.size() != layers || node.blockSizes.size() != layers)
            return fault(name + " has atlases for " + std::to_string(node.blockSizes.size()) + " of " +
                         std::to_string(layers) + " layers");
        for (std::size_t i = 0; i < layers; ++i)
            add(int(i), {node.blockPositions[i], node.blockSizes[i], false, tree_.getLayerFormat(int(i)),
                         tree_.getAtlasSize(), "the atlas of " + name});
    }

    /// A block of size 0 is none, which nobody reads.
    void add(int layer, const Block & block) {
        if (block.size > 0 && layer < tree_.getNumberOfLayers())
            blocks_[tree_.getPagingFile(layer)].push_back(block);
    }

    const TexturedTriangleTree & tree_;
    const std::string name_;
    const std::size_t models_; ///< in the table
    ValidationReport & report_;
    Blocks & blocks_;
    std::unordered_set<const MeshData *> numbered_; ///< whose numbers were checked
};

/// The blocks of a paging file.
class CheckedBlocks {
public:
    CheckedBlocks(CORE::AsyncFile & file, ValidationReport & report) : file_(file, report), report_(report) {}

    void check(std::vector<Block> blocks) {
        std::stable_sort(blocks.begin(), blocks.end(), [](const Block & a, const Block & b) {
            return a.offset != b.offset ? a.offset < b.offset : a.size < b.size;
        });
        const Block * last = nullptr;
        for (const Block & block : blocks) {
            if (file_.hasEnded()) return;
            if (!last || !block.isSame(*last)) checkBlock(block);
            last = &block;
        }
        file_.noteGaps(0, file_.size());
        file_.finish();
    }

private:
    void fault(const Block & block, const std::string & what) {
        file_.fault(block.offset, block.name + " " + what);
    }

    void checkBlock(const Block & block) {
        const bool isWithin = block.offset <= file_.size() && block.size <= file_.size() - block.offset;
        if (!isWithin) {
            file_.noteUnseen();
            return fault(block, "ends behind the end of the file; get the file anew, it was cut");
        }
        if (!file_.isFree(block.offset, block.offset + block.size))
            return fault(block, "overlaps another one; build the city anew");
        file_.take(block.offset, block.offset + block.size);
        int width = block.atlasSize, height = block.atlasSize;
        if (block.isSource && !readSize(block, width, height)) return;
        const std::uint64_t head = block.isSource ? s_sizeBytes : 0;
        const bool isSound = block.format == TexturedTriangleTree::TextureFormatJPEG
                                 ? isJpeg(block, head, width, height)
                                 : isRaw(block, head, width, height);
        if (isSound) ++report_.tiles;
    }

    /// Of a source texture.
    bool readSize(const Block & block, int & width, int & height) {
        std::int32_t sides[2] = {0, 0};
        static_assert(sizeof sides == s_sizeBytes);
        if (block.size < s_sizeBytes) {
            fault(block, "is too short to tell its size");
            return false;
        }
        if (!file_.readRecord(block.offset, sides, "the size of a texture")) return false;
        width = sides[0];
        height = sides[1];
        constexpr int most = CORE::TTTMemoryController::s_largestSide;
        const bool isSize = width > 0 && height > 0 && width <= most && height <= most;
        if (!isSize)
            fault(block, "says that it has " + std::to_string(width) + " by " + std::to_string(height) +
                             " texels, which cannot be");
        return isSize;
    }

    /// Texels may be any: they are only read.
    bool isRaw(const Block & block, std::uint64_t head, int width, int height) {
        const std::uint64_t expected = StreamTexture::blockBytes(width, height, block.format);
        const std::uint64_t present = block.size - head;
        if (present != expected) {
            fault(block, "has " + std::to_string(present) + " bytes, and needs " + std::to_string(expected) +
                             " for " + std::to_string(width) + " by " + std::to_string(height) + " texels");
            return false;
        }
        for (std::uint64_t done = 0; done < present; done += s_chunk)
            if (!file_.read(block.offset + head + done, std::min(s_chunk, present - done))) return false;
        return true;
    }

    bool isJpeg(const Block & block, std::uint64_t head, int width, int height) {
        if (block.size > s_largestJpeg) {
            fault(block, "is larger than any picture in JPEG");
            return false;
        }
        if (block.size == head) {
            fault(block, "has no levels");
            return false;
        }
        const SO<NBX::DataResource> bytes = file_.read(block.offset + head, block.size - head);
        if (!bytes) return false;
        const auto sizes = CORE::JPGDecompressorThread::levelSizes(bytes);
        if (sizes.empty() || sizes.front() != std::pair(width, height)) {
            fault(block, "holds no picture of " + std::to_string(width) + " by " + std::to_string(height) +
                             " texels and its smaller levels");
            return false;
        }
        const bool isDecoded = bool(CORE::JPGDecompressorThread::jpgMipmaps2S3Mipmaps(bytes));
        if (!isDecoded) fault(block, "cannot be decoded");
        return isDecoded;
    }

    CheckedFile file_;
    ValidationReport & report_;
};

/// Rows of the table lie one behind the other, and their boxes in that of the scene.
void checkTable(const CityModels & city, ValidationReport & report) {
    const NBX::Bounds all = city.boundingBox();
    std::uint64_t first = 0, number = 0;
    for (const CityModels::Model & model : city.models()) {
        const std::string name = "model " + std::to_string(++number) + " of the table";
        if (model.firstTriangle != first)
            report.add(0, name + " begins with triangle " + std::to_string(model.firstTriangle) +
                              ", and not " + std::to_string(first));
        first = std::uint64_t(model.firstTriangle) + model.triangles;
        if (!isFinite(model.place)) report.add(0, name + " stands at no place");
        if (!isInside(model.box, all)) report.add(0, name + " has a box that is not in that of the trees");
    }
}

void checkPagingFile(const std::wstring & name, const std::vector<Block> & blocks,
                     ValidationReport & report) {
    const std::string path = NBX::StringUtils::WString2Utf8String(name);
    std::wstring problem;
    const SO<CORE::AsyncFile> file = CORE::AsyncFile::create(name, false, &problem);
    if (!file)
        return report.add(0,
                          "cannot be opened: " + NBX::StringUtils::WString2Utf8String(problem) +
                              "; put it beside the scene, or build the city anew",
                          path);
    ValidationReport part;
    part.fileBytes = file->size();
    CheckedBlocks(*file, part).check(blocks);
    for (const ValidationReport::Fault & fault : part.faults)
        report.add(fault.offset, fault.what, path);
    report.faultCount += part.faultCount - part.faults.size();
    report.fileBytes += part.fileBytes;
    report.tiles += part.tiles;
    report.isCancelled |= part.isCancelled;
}

SO<CityModels> readScene(CORE::AsyncFile & file, const std::string & locator, ValidationReport & report) {
    try {
        return CityModels::read(CityModels::fetch(file), locator);
    } catch (const NBX::Exception & damage) {
        const std::wstring text =
            damage.message() + (damage.detail().empty() ? L"" : L": " + damage.detail());
        report.add(0, "the scene cannot be read: " + NBX::StringUtils::WString2Utf8String(text));
    }
    return nullptr;
}

} // namespace

bool CityValidation::isCity(CORE::AsyncFile & file) {
    constexpr std::uint64_t most = std::numeric_limits<unsigned>::max();
    std::uint64_t start = 0;
    if (file.size() < sizeof start || file.size() > most) return false;
    const SO<NBX::DataResource> magic = file.readNow(0, sizeof start);
    if (!magic || !NBX::ObjectStreamReader::hasMagic(magic->pointer(), magic->size())) return false;
    const SO<NBX::DataResource> bytes = file.readNow(0, file.size());
    if (!bytes) return false;
    const NBX::ID name = NBX::ObjectStreamReader::rootClass(*bytes);
    return name.isEmpty() || name == CityModels::ClassNameNBX();
}

ValidationReport CityValidation::run(CORE::AsyncFile & file, const std::string & locator) {
    ValidationReport report;
    report.format = ValidationReport::F_City;
    report.fileBytes = file.size();
    const SO<CityModels> city = readScene(file, locator, report);
    if (!city) return report;
    checkTable(*city, report);
    Blocks blocks;
    unsigned number = 0;
    for (const SO<TexturedTriangleTree> & tree : city->trees())
        CheckedTree(*tree, ++number, city->models().size(), report, blocks).check();
    for (const auto & [name, ofFile] : blocks) {
        if (report.isCancelled) break;
        checkPagingFile(name, ofFile, report);
    }
    return report;
}

} // namespace ZMT::UTIL
