#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/math/matrix4x4base.h>
#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/misc/jpgdecompressorthread.h>
#include <zmt/core/texturedtriangles/distancesortednodelist.h>

namespace NBX {
class Engine;
class ViewInfo;
} // namespace NBX

namespace ZMT::CORE {

class VisibilityManager;

/// Keeps those textures of all trees in memory that are wanted most. Painters say in each frame what they
/// would like; the controller reads blocks, has JPEG decoded on a thread, and sends a limited number of
/// textures to the card. Nodes fall back on the atlases of their ancestors, and at last on that of the root,
/// which the trees hold: what does not fit costs sharpness, never parts of the picture.
///
/// A texture is needed, under way, decoded (JPEG alone), loaded, waiting for the card, and on the card. It
/// falls out wherever it is when nobody asks for it any more, and its memory is wanted.
///
/// Two budgets hold. That of block bytes cuts what is needed, and bounds what is loaded. That of the memory
/// counts what blocks are decoded to and what the card takes, including all that is under way: no read begins
/// that would exceed it. Root atlases and meshes count for neither.
///
/// All of it belongs to the render thread.
class TTTMemoryController : public NBX::SharedObj {
    NBX_CLASS(TTTMemoryController, NBX::SharedObj)
public:
    class StreamTexture;
    using NodeRef = DistanceSortedNodeList::NodeRef;
    using Block = DistanceSortedNodeList::Block;
    using NodePointer = RenderTree::NodePointer;

    static constexpr double s_timeLimit = 0.02; ///< seconds a frame for a file, and for uploads
    static constexpr int s_mostRequests = 8;
    static constexpr int s_mostUploads = 100;
    /// The largest side of a texture that a file may tell.
    static constexpr int s_largestSide = 1 << 15;

    /// The one of the process. Never destroyed, since trees may die while libraries unload.
    static NBX::SO<TTTMemoryController> getInstance();

    /// Block bytes; at first 300 000 000. What is needed is cut to it at once; what is loaded keeps to the
    /// budget with which the controller was made, and no more than that is read.
    static int getMaxMemoryUsage() { return s_maxMemoryUsage; }
    static void setMaxMemoryUsage(int bytes) { s_maxMemoryUsage = bytes; }
    /// Bytes decoded and on the card, at first 1 GiB. Takes effect with the next `update`.
    static std::uint64_t getMaxTextureMemory() { return s_maxTextureMemory; }
    static void setMaxTextureMemory(std::uint64_t bytes) { s_maxTextureMemory = bytes; }

    TTTMemoryController();
    ~TTTMemoryController() override;
    TTTMemoryController(const TTTMemoryController &) = delete;
    TTTMemoryController & operator=(const TTTMemoryController &) = delete;

    /// Opens the paging files of a tree the first time, and those of layers and names that are new; what came
    /// from one of another name, or is under way, goes. One that cannot be opened is reported once, and its
    /// textures do not come until `tryAgain`.
    void registerTree(NBX::SO<TexturedTriangleTree> tree);
    /// To be called by the destructor of a tree: forgets all about it.
    void notifyTreeDestruction(TexturedTriangleTree * tree);

    /// A painter would like the atlases of the enabled layers of a node, or, with `original`, the source
    /// textures of a leaf. `distance` is that from the eye to the bounds of the node in units of the tree;
    /// what is `urgent` is sent to the card before it is drawn. A wish that is new, or new in what it is
    /// worth, posts a redisplay. `manager` may be null.
    void reportNeededNode(NBX::SO<TexturedTriangleTree> tree, const NodePointer & node, double distance,
                          bool original, bool urgent, NBX::SO<VisibilityManager> manager);
    /// From now on what is reported of the tree is of use in groups alone: the atlases of all children of a
    /// node, and those of the nodes above, or all source textures of a leaf, and the atlases that the leaf
    /// needs. No part of a group that does not fit the budgets is read; it leaves its room to others, and is
    /// not asked for again until a view or a budget changes, or less is wanted.
    void keepTogether(const TexturedTriangleTree & tree);
    /// Distances and pixels of all references of the tree as they are in this view, which is that in the
    /// frame of the tree. A view that is another one than in the frame before posts a redisplay.
    void recalculateNodeDistances(NBX::SO<TexturedTriangleTree> tree, NBX::SO<const NBX::ViewInfo> viewInfo,
                                  NBX::SO<VisibilityManager> manager);

    /// To be called once a frame, before anything of it is reported: takes what has come, asks for what is
    /// needed, and sends textures to the card by `engine`, without which they wait. Each engine has wishes of
    /// its own, those reported after its `update`; they hold until its next one. Distances are those of the
    /// reports and of `recalculateNodeDistances`: `viewInfo` is in the frame of one tree, and may be null.
    void update(NBX::SO<NBX::Engine> engine, NBX::SO<const NBX::ViewInfo> viewInfo);
    /// Whether the picture will be another one soon: something urgent is being read, decoded, or waits for
    /// the card; something came with the last `update`; or a wish is new. False when the view has settled,
    /// also where something failed: then a redisplay is posted for the time of the next try.
    bool redisplayRequired() const { return redisplayRequired_ || hasNewWishes_; }

    /// Bytes decoded and on the card, those reserved for what is under way included.
    std::uint64_t textureMemory() const;
    /// Bytes of the blocks that are loaded.
    std::uint64_t blockBytes() const { return loadedNodes_->bytes(); }
    /// Textures in memory, and those that are read or decoded.
    std::size_t loadedTextures() const { return loadedNodes_->entries().size(); }
    std::size_t pendingReads() const { return pendingRequests_.size(); }
    std::size_t waitingUploads() const { return uploadQueue_.size(); }
    /// What a tree holds for itself, in bytes, and what counts for no budget.
    struct Resident {
        std::uint64_t rootAtlases = 0, meshes = 0;
        std::uint64_t rays = 0; ///< what was made for rays so far
    };
    static Resident residentBytes(const TexturedTriangleTree & tree);

    /// A block that could not be read or decoded, or a file that could not be opened (of 0 bytes).
    struct Failure {
        std::wstring file;
        std::uint64_t offset = 0, bytes = 0;
        std::wstring reason;
        double retrySeconds = 0.0; ///< until it is asked for again; 0 for a file
    };
    std::vector<Failure> failures() const;
    /// Opens files anew that could not be opened, or that another one has taken the place of, and asks at
    /// once for what has failed.
    void tryAgain();

    /// What the limits of time and the pauses go by; empty for the clock of the process.
    void setClock(std::function<double()> clock) { clock_ = std::move(clock); }

    const NBX::SO<DistanceSortedNodeList> & loadedNodes() const { return loadedNodes_; }

protected:
    /// Null where it cannot be opened; what it reports is not heard.
    virtual NBX::SO<AsyncFile> openFile(const std::wstring & name) { return AsyncFile::create(name, false); }

private:
    using Request = NBX::SO<AsyncFile::Request>;
    template <class T>
    using RefTable =
        std::unordered_map<NodeRef, T, DistanceSortedNodeList::RefHash, DistanceSortedNodeList::SameRef>;
    template <class T> using BlockTable = std::unordered_map<Block, T, DistanceSortedNodeList::BlockHash>;

    /// A read, and what comes behind it until the texture is made.
    struct Pending {
        NodeRef ref;
        Block block;
        std::uint64_t reserved = 0;            ///< bytes of memory
        NBX::SO<NBX::DataResource> registered; ///< with the codec; null before
        int width = 0, height = 0;             ///< once the block is here
    };
    /// A paging file.
    struct PagingFile {
        std::wstring name;
        NBX::SO<AsyncFile> file;    ///< null where it cannot be opened
        bool isReadFailing = false; ///< which was reported
        bool isDamaged = false;     ///< likewise
    };
    struct TreeFiles {
        const TexturedTriangleTree * tree;
        std::vector<PagingFile> files; ///< by layer
        bool areNodesDamaged = false;  ///< which was reported
        bool isKeptTogether = false;
    };
    /// What is wanted of a tree follows from this, and from what is loaded.
    struct Sight {
        NBX::Matrix4x4Base<double> modelView, projection;
        double qualityFactor, maxDistance; ///< the latter negative without a limit
        bool operator==(const Sight & other) const;
    };
    /// For each time that a tree is drawn in a picture.
    struct Shown {
        std::vector<Sight> sights;
        std::size_t count = 0; ///< of those that are of this picture, not of the one before
    };
    /// Textures that are of use together.
    struct GroupName {
        const TexturedTriangleTree * tree;
        std::uint64_t node; ///< whose children these are of, or the leaf
        int layer;          ///< -1 for source textures
        bool operator<(const GroupName & other) const;
    };
    /// The wishes of the last frame of an engine.
    struct View {
        NBX::WO<NBX::Engine> engine;
        const NBX::Engine * address; ///< null for frames without an engine
        std::vector<NodeRef> wishes;
        RefTable<NodeRef> wished; ///< the same
        std::map<const TexturedTriangleTree *, Shown> shown;
    };
    /// Bytes of a texture, and of the picture that its largest level is on the way.
    struct Decoded {
        std::uint64_t texture = 0, picture = 0;
    };
    /// A block that failed, and when it may be asked for again.
    struct Trouble;
    /// What is kept of the wishes.
    class Cut;

    double now() const;
    JPGDecompressorThread & codec();

    void open(const TexturedTriangleTree * tree, std::size_t layer, const std::wstring & name);
    TreeFiles * filesOf(const TexturedTriangleTree * tree);
    PagingFile * fileOf(const Block & block);
    void forgetLayer(const TexturedTriangleTree & tree, int layer);
    void wish(NodeRef ref, VisibilityManager * manager, std::uint64_t key);

    void requireUpdate();
    void noteView(const TexturedTriangleTree & tree, const NBX::ViewInfo & viewInfo);
    void gatherWishes(const NBX::SO<NBX::Engine> & engine);
    void cutToBudgets();
    void settleRefused();
    void leaveAway(const std::vector<GroupName> & groups);
    void forgetRefused();
    Block blockToRead(const NodeRef & ref);
    void judge(NodeRef & ref) const;
    void judgeAll();
    bool isWanted(const Block & block) const { return wantedBlocks_.count(block) != 0; }

    void takeResults();
    void takeFailed(TreeFiles & tree, int layer);
    bool takeReady(TreeFiles & tree, int layer);
    void takeReady(const Request & request);
    bool findSize(Pending & pending, NBX::SO<NBX::DataResource> & data);
    void beginDecoding(const Request & request, Pending & pending, const NBX::SO<NBX::DataResource> & data);
    void decode(const Request & request, Pending & pending, const NBX::SO<NBX::DataResource> & data);
    void load(const Request & request, const NBX::SO<StreamTexture> & texture);
    void failDecoding(const Block & block, const NBX::DataResource & data);
    bool hasPlace(const NodeRef & ref) const;
    void drop(const Request & request);
    void noteReadFailure(const Block & block, const std::wstring & reason);
    void noteDamage(const Block & block, const std::wstring & reason);
    Trouble & troubleOf(const Block & block, const std::wstring & reason);

    void dropUnwantedRequests();
    bool startReads();
    bool mayRead(const Block & block, PagingFile & file);
    void read(const NodeRef & ref, const Block & block, AsyncFile & file, double lastDistance);
    bool useLoaded(const NodeRef & ref, const Block & block);
    void countLoadedMemory();
    std::uint64_t loadedBytes(const Block & block) const;
    std::uint64_t pictureBytes(const Block & block) const;
    std::uint64_t peakBytes(const Block & block) const;
    bool makeRoom(std::uint64_t bytes, const std::function<bool(const NodeRef &)> & mayGo);
    bool makeRoomFor(const Block & block, std::uint64_t bytes);
    void keepToBudget();
    void postRetry() const;

    void queueForUpload(const NodeRef & ref);
    std::size_t continueTextureUpload(const NBX::SO<NBX::Engine> & engine);
    bool isUrgent(const Block & block) const;
    bool isUploadWaiting() const;

    static int s_maxMemoryUsage;
    static std::uint64_t s_maxTextureMemory;

    std::vector<NodeRef> neededNodes_; ///< reported since the last `update`
    RefTable<NodeRef> neededSet_;      ///< the same
    std::map<Request, Pending> pendingRequests_;
    std::vector<TreeFiles> treeFiles_; ///< in the order of registration
    NBX::SO<DistanceSortedNodeList> loadedNodes_;
    std::vector<NodeRef> uploadQueue_;
    RefTable<bool> queued_; ///< the same

    std::vector<View> views_;
    const NBX::Engine * reporting_ = nullptr;           ///< whose frame it is since the last `update`
    std::vector<NodeRef> wanted_;                       ///< of all views, sorted, as far as the budgets reach
    std::vector<Block> wantedPlaces_;                   ///< where they lie
    RefTable<std::size_t> active_;                      ///< their indices
    BlockTable<std::vector<std::size_t>> wantedBlocks_; ///< the indices of those that share a block
    std::set<Block> pendingBlocks_;
    std::set<GroupName> refused_;       ///< until a view or a budget changes, or less is wanted
    std::vector<GroupName> refusedNow_; ///< by the last cut
    std::uint64_t demand_ = 0;          ///< bytes of memory for all that was wished at the last cut
    static constexpr std::uint64_t s_anyDemand = ~std::uint64_t{0};
    std::uint64_t refusedDemand_ = s_anyDemand; ///< the least at which any was refused
    std::pair<std::uint64_t, std::uint64_t>
        budgets_;           ///< that it was made for: bytes of blocks, and of memory
    int updatesOfView_ = 0; ///< since a view or a budget changed
    std::map<Block, std::shared_ptr<Trouble>> troubles_;
    std::uint64_t loadedMemory_ = 0;      ///< of the textures that are loaded, or more
    std::map<Block, Decoded> knownBytes_; ///< that source textures in JPEG are decoded to
    NBX::SO<JPGDecompressorThread> codec_;
    std::function<double()> clock_;
    double readTime_ = 0.0; ///< of the last look at what is to be read
    bool redisplayRequired_ = false;
    bool hasNewWishes_ = false;
};

} // namespace ZMT::CORE
