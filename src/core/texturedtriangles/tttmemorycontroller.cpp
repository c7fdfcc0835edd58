// The controller, its trees and their files. A frame: `update` takes the wishes of the frame before, sorts
// them, cuts them to both budgets, takes what has come from files and the codec, asks for what is missing,
// and sends textures to the card. Each of these steps has a file of its own beside this one.

#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include <algorithm>

#include <nbx/engine/canvas.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/nbxtime.h>

#include "nbx/object/heldreports.h"
#include "tttmemorycontrollerparts.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(TTTMemoryController, NBX::SharedObj)

int TTTMemoryController::s_maxMemoryUsage = 300000000;
std::uint64_t TTTMemoryController::s_maxTextureMemory = std::uint64_t(1) << 30U;

namespace {

using NodeRef = TTTMemoryController::NodeRef;
using Block = TTTMemoryController::Block;

std::uint64_t bytesOfMesh(const NBX::MappedVertexAttributeShapeGL * mesh) {
    if (!mesh) return 0;
    return (mesh->data() ? mesh->data()->bytes() : 0) + (mesh->indices() ? mesh->indices()->bytes() : 0);
}

std::uint64_t meshBytes(const RenderNode & node) {
    std::uint64_t bytes =
        bytesOfMesh(node.triangles.get()) + (node.vertexData ? node.vertexData->bytes() : 0);
    for (const auto & mesh : node.originalGeometry)
        bytes += bytesOfMesh(mesh.get());
    return bytes;
}

void removeTree(std::vector<NodeRef> & refs, const TexturedTriangleTree * tree) {
    std::erase_if(refs, [tree](const NodeRef & ref) { return ref.tree == tree; });
}

} // namespace

NBX::SO<TTTMemoryController> TTTMemoryController::getInstance() {
    static const NBX::SO<TTTMemoryController> & s_instance =
        *new NBX::SO<TTTMemoryController>(new TTTMemoryController);
    return s_instance;
}

TTTMemoryController::TTTMemoryController() : loadedNodes_(new DistanceSortedNodeList(s_maxMemoryUsage)) {}

TTTMemoryController::~TTTMemoryController() = default;

double TTTMemoryController::now() const {
    return clock_ ? clock_() : static_cast<double>(NBX::NBXTime::now());
}

/// One for all: it never ends.
JPGDecompressorThread & TTTMemoryController::codec() {
    if (!codec_) {
        static const NBX::SO<JPGDecompressorThread> & thread = [&]() -> NBX::SO<JPGDecompressorThread> & {
            auto & made = *new NBX::SO<JPGDecompressorThread>(new JPGDecompressorThread);
            made->start();
            return made;
        }();
        codec_ = thread;
    }
    return *codec_;
}

/// What the opening itself reports is not heard: one report tells of one file.
/// Whoever waits for a web server hands on what happens meanwhile: trees come, go and get other files.
void TTTMemoryController::open(const TexturedTriangleTree * tree, std::size_t layer,
                               const std::wstring & name) {
    std::vector<NBX::ErrorReport> unheard;
    NBX::SO<AsyncFile> file;
    {
        const NBX::HeldReports held(unheard);
        file = openFile(name);
    }
    if (!file) NBX_FAILURE(L"failed to open streaming file: " << name);
    TreeFiles * files = filesOf(tree);
    if (files && layer < files->files.size() && files->files[layer].name == name)
        files->files[layer] = PagingFile{name, file};
}

auto TTTMemoryController::filesOf(const TexturedTriangleTree * tree) -> TreeFiles * {
    const auto found = std::find_if(treeFiles_.begin(), treeFiles_.end(),
                                    [tree](const TreeFiles & files) { return files.tree == tree; });
    return found == treeFiles_.end() ? nullptr : &*found;
}

auto TTTMemoryController::fileOf(const Block & block) -> PagingFile * {
    TreeFiles * files = filesOf(block.tree);
    const auto layer = static_cast<std::size_t>(block.layer);
    return files && layer < files->files.size() ? &files->files[layer] : nullptr;
}

void TTTMemoryController::registerTree(NBX::SO<TexturedTriangleTree> tree) {
    NBX_CHECK(tree, L"no tree");
    if (!tree) return;
    if (!filesOf(tree.get())) {
        treeFiles_.push_back({tree.get(), {}, false, false});
        tree->setMemoryController(this);
    }
    for (int layer = 0; layer < tree->getNumberOfLayers(); ++layer) {
        std::vector<PagingFile> & files = filesOf(tree.get())->files;
        const auto place = static_cast<std::size_t>(layer);
        const std::wstring name = tree->getPagingFile(layer);
        if (place < files.size() && files[place].name == name) continue;
        if (place < files.size()) forgetLayer(*tree, layer);
        files.resize(std::max(files.size(), place + 1));
        files[place] = PagingFile{name, nullptr};
        open(tree.get(), place, name);
    }
}

/// What lies in the file of a layer is another texture in another file.
void TTTMemoryController::forgetLayer(const TexturedTriangleTree & tree, int layer) {
    const auto isOfLayer = [&](const Block & block) { return block.tree == &tree && block.layer == layer; };
    std::vector<Request> requests;
    for (const auto & [request, pending] : pendingRequests_)
        if (isOfLayer(pending.block)) requests.push_back(request);
    for (const Request & request : requests)
        drop(request);
    std::erase_if(troubles_, [&](const auto & entry) { return isOfLayer(entry.first); });
    std::erase_if(knownBytes_, [&](const auto & entry) { return isOfLayer(entry.first); });
    loadedNodes_->removeLayer(&tree, layer);
    forgetRefused();
    requireUpdate();
}

void TTTMemoryController::notifyTreeDestruction(TexturedTriangleTree * tree) {
    std::vector<Request> requests;
    for (const auto & [request, pending] : pendingRequests_)
        if (pending.ref.tree == tree) requests.push_back(request);
    for (const Request & request : requests)
        drop(request);
    removeTree(neededNodes_, tree);
    removeTree(uploadQueue_, tree);
    std::erase_if(queued_, [tree](const auto & entry) { return entry.first.tree == tree; });
    const auto isRefOfTree = [tree](const auto & entry) { return entry.first.tree == tree; };
    for (View & view : views_) {
        removeTree(view.wishes, tree);
        std::erase_if(view.wished, isRefOfTree);
        view.shown.erase(tree);
    }
    std::erase_if(neededSet_, isRefOfTree);
    const auto isOfTree = [tree](const auto & entry) { return entry.first.tree == tree; };
    std::erase_if(troubles_, isOfTree);
    std::erase_if(knownBytes_, isOfTree);
    loadedNodes_->removeTree(tree);
    std::erase_if(treeFiles_, [tree](const TreeFiles & files) { return files.tree == tree; });
    forgetRefused();
    // The places of the others change.
    wanted_.clear();
    wantedPlaces_.clear();
    active_.clear();
    wantedBlocks_.clear();
}

void TTTMemoryController::tryAgain() {
    troubles_.clear();
    forgetRefused();
    struct Lost {
        const TexturedTriangleTree * tree;
        std::size_t layer;
        std::wstring name;
    };
    std::vector<Lost> lost;
    for (const TreeFiles & tree : treeFiles_)
        for (std::size_t layer = 0; layer < tree.files.size(); ++layer) {
            const PagingFile & paging = tree.files[layer];
            if (paging.file && !paging.file->hasChanged()) continue;
            for (const Request & request : paging.file ? paging.file->requests() : AsyncFile::Requests())
                drop(request);
            lost.push_back({tree.tree, layer, paging.name});
        }
    for (const Lost & file : lost)
        open(file.tree, file.layer, file.name);
    NBX::Canvas::postAllForRedisplay(0.0);
}

auto TTTMemoryController::failures() const -> std::vector<Failure> {
    std::vector<Failure> result;
    for (const TreeFiles & tree : treeFiles_)
        for (std::size_t layer = 0; layer < tree.files.size(); ++layer) {
            const PagingFile & paging = tree.files[layer];
            if (!paging.file) result.push_back({paging.name, 0, 0, L"it cannot be opened", 0.0});
            for (const auto & [block, trouble] : troubles_)
                if (block.tree == tree.tree && block.layer == static_cast<int>(layer) && isWanted(block))
                    result.push_back({paging.name, block.position, block.size, trouble->reason,
                                      std::max(0.0, trouble->retryTime - now())});
        }
    return result;
}

void TTTMemoryController::update(NBX::SO<NBX::Engine> engine, NBX::SO<const NBX::ViewInfo>) {
    redisplayRequired_ = false;
    gatherWishes(engine);
    cutToBudgets();
    judgeAll();
    countLoadedMemory();
    dropUnwantedRequests();
    takeResults();
    const bool lacksRoom = startReads();
    keepToBudget();
    const std::size_t uploads = continueTextureUpload(engine);
    // Both end with memory that is free again.
    if (lacksRoom && (uploads > 0 || !pendingRequests_.empty())) redisplayRequired_ = true;
    for (const auto & [request, pending] : pendingRequests_)
        redisplayRequired_ = redisplayRequired_ || isUrgent(pending.block);
    redisplayRequired_ = redisplayRequired_ || (engine && isUploadWaiting());
    settleRefused();
    postRetry();
}

auto TTTMemoryController::residentBytes(const TexturedTriangleTree & tree) -> Resident {
    Resident result;
    for (int layer = 0; layer < tree.getNumberOfLayers(); ++layer)
        result.rootAtlases += bytesOf(tree.getRootAtlas(layer).get());
    result.meshes = bytesOfMesh(tree.getUntexturedGeometry().get());
    result.rays = tree.rayBytes();
    std::vector<NodePointer> waiting;
    if (tree.getRenderTree()) waiting.push_back(tree.getRenderTree()->root());
    while (!waiting.empty()) {
        const NodePointer node = waiting.back();
        waiting.pop_back();
        result.meshes += meshBytes(node->content);
        for (unsigned i = 0; node.tree()->hasChildren(node) && i < RenderTree::s_childrenOfNode; ++i)
            waiting.push_back(node.tree()->child(node, i));
    }
    return result;
}

} // namespace ZMT::CORE
