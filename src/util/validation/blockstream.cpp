#include "blockstream.h"

#include <algorithm>
#include <cstddef>

#include "core/terrain/geometry/grid/model/tileblock.h"
#include "core/terrain/texture/streaming/streamingtextureformat.h"
#include <nbx/data/datasubresource.h>
#include <nbx/data/memorydataresource.h>

namespace ZMT::UTIL {

namespace {

using namespace CORE::GRID;
using CORE::StreamingTextureFormat::headerSize;

std::string text(const TileRef & ref) {
    return std::to_string(ref.storedSize) + " bytes at " + std::to_string(ref.offset);
}

/// The first byte from `offset` on that is not zero; 0 for none.
std::size_t firstNonZero(const NBX::DataResource & data, std::size_t offset) {
    const auto * bytes = static_cast<const char *>(data.pointer());
    const auto * found =
        std::find_if(bytes + offset, bytes + data.size(), [](char byte) { return byte != 0; });
    return found == bytes + data.size() ? 0 : static_cast<std::size_t>(found - bytes);
}

} // namespace

bool BlockStream::accepts(const Named & named) {
    const TileRef & ref = named.ref;
    const char * fault = TileBlock::fault(ref, size_, headerSize);
    if (!fault && ref.offset + ref.storedSize > named.before) fault = "does not lie before what refers to it";
    if (fault) {
        file_.fault(named.at, "the reference to " + named.name + ", " + text(ref) + ", " + fault);
        file_.noteUnseen();
        return false;
    }
    if (begin(ref) % TileBlock::alignment != 0)
        file_.fault(named.at, "the reference to " + named.name + ", " + text(ref) + ", is no multiple of 16");
    return true;
}

std::uint64_t BlockStream::end(const TileRef & ref) const {
    const std::uint64_t end = begin(ref) + ref.storedSize;
    return std::min(end + TileBlock::padding(end), base_ + size_);
}

std::uint64_t BlockStream::position(const TileRef & ref, std::size_t offset) const {
    return begin(ref) + (ref.rawSize == ref.storedSize ? offset : 0);
}

void BlockStream::ask(Named & named) const {
    if (!named.request) named.request = file_.ask(begin(named.ref), end(named.ref) - begin(named.ref));
}

NBX::SO<NBX::DataResource> BlockStream::read(Named & named) {
    const TileRef & ref = named.ref;
    const std::uint64_t size = end(ref) - begin(ref);
    NBX::SO<NBX::DataResource> data;
    if (file_.isFree(begin(ref), end(ref)))
        data = file_.read(begin(ref), size, named.request);
    else
        file_.fault(named.at,
                    "the reference to " + named.name + ", " + text(ref) + ", leads into another block");
    if (!data) {
        file_.noteUnseen();
        return nullptr;
    }
    named.wrongZero = firstNonZero(*data, ref.storedSize);
    if (named.wrongZero != 0) named.wrongZero += begin(ref);
    NBX::SO<NBX::DataResource> stored(new NBX::DataSubResource(data.get(), 0, ref.storedSize, false));
    if (key_ != 0) {
        // What was read may be shared.
        stored = new NBX::MemoryDataResource(data->pointer(), ref.storedSize);
        CORE::StreamingTextureFormat::scramble(stored->pointer(), stored->size(), key_);
    }
    unsigned used = 0;
    const NBX::SO<NBX::DataResource> raw = TileBlock::inflated(ref, stored, &used);
    if (!raw) {
        file_.fault(begin(ref), named.fullName() + ": the block does not inflate to " +
                                    std::to_string(ref.rawSize) + " bytes");
        file_.noteUnseen();
    } else if (used != ref.storedSize) {
        file_.fault(begin(ref) + used, named.name + ": the block ends " +
                                           std::to_string(ref.storedSize - used) +
                                           " bytes before its stored size");
    }
    return raw;
}

void BlockStream::take(const Named & named) {
    file_.take(begin(named.ref), end(named.ref));
    if (named.wrongZero != 0) file_.fault(named.wrongZero, "a byte between two blocks is not zero");
}

void BlockStream::noteGaps() {
    file_.noteGaps(base_ + headerSize, base_ + size_);
}

} // namespace ZMT::UTIL
