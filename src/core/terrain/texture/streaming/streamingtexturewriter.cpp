#include "streamingtexturewriter.h"

namespace ZMT::CORE {

using StreamingTextureFormat::StreamHeader;

StreamingTextureWriter::StreamingTextureWriter(const NBX::SO<NBX::File> & file, std::uint64_t key,
                                               unsigned threads)
    : file_(file), key_(key), base_(file->position()), progress_("creating streaming texture", 1.0),
      tiles_(file, base_, key, threads) {
    // Plain: no reader takes it before it is written again.
    writeHeader(StreamHeader::blank(), 0);
}

void StreamingTextureWriter::finish(const Handle & root) {
    tiles_.finish();
    progress_.finish();
    StreamHeader header = StreamHeader::blank();
    header.dataSize = file_->size() - base_;
    header.root = TileBlockQueue::refOf(root);
    file_->seek(static_cast<std::int64_t>(base_));
    writeHeader(header, key_);
    file_->seek(0, NBX::SM_End);
}

void StreamingTextureWriter::writeHeader(StreamHeader header, std::uint64_t key) {
    StreamingTextureFormat::scramble(&header, sizeof header, key);
    file_->write(&header, sizeof header);
}

} // namespace ZMT::CORE
