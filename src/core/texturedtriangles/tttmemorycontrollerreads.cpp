// What is read, decoded and kept. What a file says is held against what can be before anything is done with
// it: places against the length of the file, sides against the bytes behind them, levels of JPEG against the
// sides. What failed is left alone for longer and longer (`BlockRetry`); a frame is posted for the next try.

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <string_view>
#include <utility>

#include <nbx/data/datasubresource.h>
#include <nbx/engine/canvas.h>
#include <nbx/object/errorhandler.h>

#include "tttmemorycontrollerparts.h"

namespace ZMT::CORE {

namespace {

using NodeRef = TTTMemoryController::NodeRef;
using Block = TTTMemoryController::Block;
using Format = TexturedTriangleTree::TextureFormat;

/// Width and height in front of a source texture.
constexpr unsigned s_sizeBytes = 8;

/// In which what has come is kept.
Format decodedFormat(Format format) {
    return format == TexturedTriangleTree::TextureFormatJPEG ? TexturedTriangleTree::TextureFormatDXT1
                                                             : format;
}

int sideAt(const NBX::DataResource & data, unsigned offset) {
    unsigned char bytes[4] = {};
    data.read(offset, bytes, sizeof bytes);
    return static_cast<int>(static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
                            static_cast<std::uint32_t>(bytes[2]) << 16 |
                            static_cast<std::uint32_t>(bytes[3]) << 24);
}

/// Whether the pictures of a block are the levels of a texture: what decoding it takes follows from that.
bool areLevels(const std::vector<std::pair<int, int>> & sizes, int width, int height) {
    using StreamTexture = TTTMemoryController::StreamTexture;
    const auto levels = StreamTexture::levels(width, height, TexturedTriangleTree::TextureFormatDXT1);
    return !levels.empty() && sizes.size() == levels.size() &&
           std::equal(sizes.begin(), sizes.end(), levels.begin(), [](const auto & size, const auto & level) {
               return size.first == level.width && size.second == level.height;
           });
}

/// Never 0.
std::size_t fingerprint(const NBX::DataResource & data) {
    const std::string_view bytes(static_cast<const char *>(data.pointer()), data.size());
    return std::max<std::size_t>(1, std::hash<std::string_view>()(bytes));
}

} // namespace

// What has come

void TTTMemoryController::drop(const Request & request) {
    // The table may hold the last reference.
    const auto taken = pendingRequests_.extract(request);
    if (!taken) {
        request->cancel();
        return;
    }
    if (taken.mapped().registered) codec().cancelQuery(taken.mapped().registered);
    pendingBlocks_.erase(taken.mapped().block);
    taken.key()->cancel();
}

auto TTTMemoryController::troubleOf(const Block & block, const std::wstring & reason) -> Trouble & {
    std::shared_ptr<Trouble> & trouble = troubles_[block];
    if (!trouble) trouble = std::make_shared<Trouble>();
    trouble->reason = reason;
    return *trouble;
}

void TTTMemoryController::noteReadFailure(const Block & block, const std::wstring & reason) {
    Trouble & trouble = troubleOf(block, reason);
    trouble.retryTime = now() + trouble.retry.readFailed();
    PagingFile * paging = fileOf(block);
    if (!paging || paging->isReadFailing) return;
    paging->isReadFailing = true;
    NBX_FAILURE(L"textures cannot be read, and are asked for again: " << reason << L": " << paging->name);
}

void TTTMemoryController::noteDamage(const Block & block, const std::wstring & reason) {
    Trouble & trouble = troubleOf(block, reason);
    trouble.retryTime = now() + trouble.retry.blockFailed();
    PagingFile * paging = fileOf(block);
    if (!paging || paging->isDamaged) return;
    paging->isDamaged = true;
    NBX_FAILURE(L"a texture is damaged, and a coarser one is shown; get the file anew: "
                << reason << L", " << block.size << L" bytes at " << block.position << L": " << paging->name);
}

void TTTMemoryController::takeFailed(TreeFiles & tree, int layer) {
    AsyncFile & file = *tree.files[static_cast<std::size_t>(layer)].file;
    for (const Request & request : file.requests(AsyncFile::RS_Failed)) {
        const auto found = pendingRequests_.find(request);
        if (found != pendingRequests_.end()) noteReadFailure(found->second.block, request->errorText());
        drop(request);
    }
}

/// Sides of the texture, and the bytes behind them; false for what cannot be.
bool TTTMemoryController::findSize(Pending & pending, NBX::SO<NBX::DataResource> & data) {
    const Block & block = pending.block;
    if (!data || data->size() < block.size) return false;
    pending.width = pending.height = block.tree->getAtlasSize();
    if (block.original) {
        if (data->size() < s_sizeBytes) return false;
        pending.width = sideAt(*data, 0);
        pending.height = sideAt(*data, 4);
        data = new NBX::DataSubResource(data.get(), s_sizeBytes, data->size() - s_sizeBytes, false);
    }
    const Format format = formatOf(block);
    if (format == TexturedTriangleTree::TextureFormatJPEG)
        return areLevels(JPGDecompressorThread::levelSizes(data), pending.width, pending.height);
    const std::uint64_t bytes = StreamTexture::blockBytes(pending.width, pending.height, format);
    return bytes > 0 && bytes == data->size();
}

void TTTMemoryController::takeReady(const Request & request) {
    const auto found = pendingRequests_.find(request);
    if (found == pendingRequests_.end()) NBX_REPORT(0, L"request", L"no request");
    if (found == pendingRequests_.end()) return drop(request);
    if (request->state() != AsyncFile::RS_Ready)
        NBX_REPORT(0, L"request->state()==CORE::AsyncFile::RS_Ready", L"unexpected request state");
    Pending & pending = found->second;
    if (!isWanted(pending.block)) return drop(request);
    NBX::SO<NBX::DataResource> data = pending.registered ? pending.registered : request->data();
    if (!pending.registered && !findSize(pending, data)) {
        noteDamage(pending.block, L"its size cannot be");
        return drop(request);
    }
    if (formatOf(pending.block) == TexturedTriangleTree::TextureFormatJPEG)
        return decode(request, pending, data);
    load(request,
         new StreamTexture(pending.width, pending.height, data, decodedFormat(formatOf(pending.block))));
}

/// The codec tells of each picture that it cannot decode, so that it gets none again that it could not.
void TTTMemoryController::beginDecoding(const Request & request, Pending & pending,
                                        const NBX::SO<NBX::DataResource> & data) {
    const Block block = pending.block;
    const auto trouble = troubles_.find(block);
    if (trouble != troubles_.end() && trouble->second->badBytes != 0 &&
        trouble->second->badBytes == fingerprint(*data)) {
        drop(request);
        return failDecoding(block, *data);
    }
    if (block.original) {
        const auto texels =
            static_cast<std::uint64_t>(pending.width) * static_cast<std::uint64_t>(pending.height);
        knownBytes_[block] = {StreamTexture::textureBytes(pending.width, pending.height,
                                                          TexturedTriangleTree::TextureFormatDXT1),
                              s_pictureTexelBytes * texels};
    }
    const std::uint64_t peak = peakBytes(block), more = peak - std::min(peak, pending.reserved);
    if (more > 0 && !makeRoomFor(block, more)) {
        redisplayRequired_ = true; // wishes are to be cut anew, by what is known now
        return drop(request);
    }
    pending.reserved = peak;
    pending.registered = data;
    codec().registerInputImage(data, JPGDecompressorThread::ConvertToS3);
}

void TTTMemoryController::decode(const Request & request, Pending & pending,
                                 const NBX::SO<NBX::DataResource> & data) {
    if (!pending.registered) return beginDecoding(request, pending, data);
    const Block block = pending.block;
    switch (codec().getDecompressionState(data)) {
    case JPGDecompressorThread::Finished: {
        const auto blocks = NBX::soCast<NBX::DataResource>(codec().getResult(data));
        pending.registered = nullptr;
        load(request, new StreamTexture(pending.width, pending.height, blocks,
                                        TexturedTriangleTree::TextureFormatDXT1));
        return;
    }
    case JPGDecompressorThread::Failed:
        drop(request);
        failDecoding(block, *data);
        return;
    default:
        return;
    }
}

/// Told once of a block, however often it is tried.
void TTTMemoryController::failDecoding(const Block & block, const NBX::DataResource & data) {
    Trouble & trouble = troubleOf(block, L"it is no JPEG picture");
    if (trouble.badBytes == 0) NBX_FAILURE(L"jpg decompression failed");
    trouble.badBytes = fingerprint(data);
    trouble.retryTime = now() + trouble.retry.blockFailed();
}

/// Whether the node has a place for a source texture; told where it has lost it.
bool TTTMemoryController::hasPlace(const NodeRef & ref) const {
    if (!ref.original) return true;
    const RenderNode & content = ref.node->content;
    const auto i = static_cast<std::size_t>(ref.textureNumber);
    if (!content.originalTextures || i >= content.originalTextures->size()) {
        NBX_REPORT(0,
                   L"ref.node->content.originalTextures!=0 && "
                   L"ref.node->content.originalTextures->size()>ref.textureNumber",
                   L"texture array missing or texture number out of range");
        return false;
    }
    if (i >= content.textureStates.size())
        NBX_REPORT(0, L"ref.node->content.textureStates.size()>ref.textureNumber",
                   L"texture states array too small:" << ref.textureNumber);
    return true;
}

/// A texture for all that want its block.
void TTTMemoryController::load(const Request & request, const NBX::SO<StreamTexture> & texture) {
    const Block block = pendingRequests_.find(request)->second.block;
    drop(request);
    if (!texture->isComplete()) return noteDamage(block, L"it ends too early");
    troubles_.erase(block);
    if (PagingFile * paging = fileOf(block)) paging->isReadFailing = false;
    for (const std::size_t i : wantedBlocks_[block]) {
        NodeRef ref = wanted_[i];
        if (!hasPlace(ref)) continue;
        if (ref.original && std::size_t(ref.textureNumber) < ref.node->content.textureStates.size())
            ref.node->content.textureStates[std::size_t(ref.textureNumber)] = false;
        ref.data = texture;
        loadedNodes_->add(ref, block);
        queueForUpload(ref);
    }
    loadedMemory_ += bytesOf(texture.get());
    redisplayRequired_ = true;
}

bool TTTMemoryController::takeReady(TreeFiles & tree, int layer) {
    AsyncFile & file = *tree.files[static_cast<std::size_t>(layer)].file;
    const double begin = now();
    for (const Request & request : file.requests(AsyncFile::RS_Ready)) {
        takeReady(request);
        if (now() - begin > s_timeLimit) return false;
    }
    return true;
}

void TTTMemoryController::takeResults() {
    for (TreeFiles & tree : treeFiles_)
        for (std::size_t layer = 0; layer < tree.files.size(); ++layer) {
            if (!tree.files[layer].file) continue;
            takeFailed(tree, static_cast<int>(layer));
            if (!takeReady(tree, static_cast<int>(layer))) return;
        }
}

// What is asked for

void TTTMemoryController::dropUnwantedRequests() {
    std::vector<Request> unwanted;
    for (const auto & [request, pending] : pendingRequests_)
        if (!isWanted(pending.block) && request->state() == AsyncFile::RS_Queued) unwanted.push_back(request);
    for (const Request & request : unwanted)
        drop(request);
}

/// A texture that is here is put into the node again, or into this one as well.
bool TTTMemoryController::useLoaded(const NodeRef & ref, const Block & block) {
    NodeRef loaded = ref;
    loaded.data = loadedNodes_->find(block);
    if (!loaded.data) return false;
    if (!loadedNodes_->link(ref)) {
        if (!hasPlace(ref)) return true;
        loadedNodes_->add(loaded, block);
    }
    if (isUploaded(loaded.data)) {
        setState(loaded);
        return true;
    }
    queueForUpload(loaded);
    return true;
}

/// Whether it is time to, and the block lies in the file.
bool TTTMemoryController::mayRead(const Block & block, PagingFile & paging) {
    const auto trouble = troubles_.find(block);
    if (trouble != troubles_.end() && readTime_ < trouble->second->retryTime) return false;
    const std::uint64_t bytes = paging.file->size();
    if (block.size <= std::numeric_limits<unsigned>::max() && block.size <= bytes &&
        block.position <= bytes - block.size)
        return true;
    noteDamage(block, L"it lies beyond the end of the file");
    return false;
}

void TTTMemoryController::read(const NodeRef & ref, const Block & block, AsyncFile & file,
                               double lastDistance) {
    const double share = lastDistance > 0.0 ? ref.distance / lastDistance : 0.0;
    const Request request = file.request(block.position, block.size, ref.pixelCount + 1.0 - share);
    if (!request) return noteReadFailure(block, file.errorText());
    pendingRequests_[request] = Pending{ref, block, peakBytes(block), nullptr, 0, 0};
    pendingBlocks_.insert(block);
}

/// Whether something urgent has found no room.
bool TTTMemoryController::startReads() {
    readTime_ = now();
    std::size_t outstanding = 0;
    for (const TreeFiles & tree : treeFiles_)
        for (const PagingFile & paging : tree.files)
            outstanding += paging.file ? paging.file->requests().size() : 0;
    const double lastDistance = wanted_.empty() ? 0.0 : wanted_.back().distance;
    bool hasRoom = true, isUrgentOneLeft = false;
    for (std::size_t i = 0; i < wanted_.size(); ++i) {
        const NodeRef & ref = wanted_[i];
        const Block & block = wantedPlaces_[i];
        PagingFile * paging = fileOf(block);
        if (!paging || !paging->file || useLoaded(ref, block) || pendingBlocks_.count(block)) continue;
        if (!hasRoom || !mayRead(block, *paging)) continue;
        if (outstanding >= s_mostRequests) {
            redisplayRequired_ = redisplayRequired_ || ref.urgency == 0;
            continue;
        }
        // What is wanted less does not take the room.
        hasRoom = makeRoomFor(block, peakBytes(block));
        if (!hasRoom) {
            isUrgentOneLeft = ref.urgency == 0; // and those behind it are wanted less
            continue;
        }
        read(ref, block, *paging->file, lastDistance);
        ++outstanding;
    }
    return isUrgentOneLeft;
}

/// Frames come by themselves only as long as something is under way. What was due and could not be read,
/// since there is no room or no file, waits for that, and not for another frame.
void TTTMemoryController::postRetry() const {
    double next = std::numeric_limits<double>::infinity();
    for (const auto & [block, trouble] : troubles_)
        if (isWanted(block) && !pendingBlocks_.count(block) && trouble->retryTime > readTime_)
            next = std::min(next, trouble->retryTime);
    if (next < std::numeric_limits<double>::infinity())
        NBX::Canvas::postAllForRedisplay(std::max(0.0, next - now()));
}

} // namespace ZMT::CORE
