// Coding takes most of the time of a build, and is done on two threads; blocks are held in memory only until
// their turn in the file comes, which is that in which they were given, so that the bytes do not depend on
// who was faster.

#include "pagingfilewriter.h"

#include <algorithm>
#include <utility>

#include <nbx/image/memoryimage.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/jpgdecompressorthread.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "sourcetextures.h"

namespace ZMT::CORE {

namespace {

using TextureFormat = TexturedTriangleTree::TextureFormat;

/// Of blocks of the card, and of the smallest level of a JPEG block.
constexpr int s_blockSide = 4;

bool hasBlocks(TextureFormat format) {
    return format == TexturedTriangleTree::TextureFormatDXT1 ||
           format == TexturedTriangleTree::TextureFormatJPEG;
}

int powerOfTwoFor(int side) {
    int power = s_blockSide;
    while (power < side && power < PagingFileWriter::s_largestSide)
        power *= 2;
    return power;
}

/// Little-endian with a sign.
void appendNumber(NBX::AtomicFileWriter & writer, int value) {
    unsigned char bytes[4];
    for (unsigned i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(static_cast<unsigned>(value) >> (8 * i));
    writer.write(bytes, sizeof bytes);
}

} // namespace

PagingFileWriter::PagingFileWriter(const std::wstring & path, TextureFormat format)
    : path_(NBX::StringUtils::WString2Utf8String(path)),
      writer_(std::make_unique<NBX::AtomicFileWriter>(path_)), format_(format) {}

void PagingFileWriter::commit(const HeldPagingFiles::Fill & fill) {
    if (HeldPagingFiles * held = HeldPagingFiles::current())
        held->take(std::move(writer_), path_, fill);
    else
        writer_->commit();
}

NBX::SO<NBX::DataResource> PagingFileWriter::coded(const NBX::SO<NBX::Image> & image, TextureFormat format) {
    if (!image) return nullptr;
    if (format == TexturedTriangleTree::TextureFormatJPEG)
        return JPGDecompressorThread::buildJPGMipmaps(image).get();
    return NBX::SO<TTTMemoryController::StreamTexture>(new TTTMemoryController::StreamTexture(image, format))
        ->data();
}

NBX::SO<NBX::Image> PagingFileWriter::storable(const NBX::SO<NBX::Image> & image, TextureFormat format) {
    const auto sideFor = [format](int side) {
        return hasBlocks(format) ? powerOfTwoFor(side) : std::min(side, s_largestSide);
    };
    const int width = sideFor(image->width()), height = sideFor(image->height());
    if (width == image->width() && height == image->height()) return image;
    const NBX::SO<NBX::Image> scaled(
        new NBX::MemoryImage(width, height, image->layerSequence(), image->dataType()));
    scaled->copy(image.get());
    return scaled;
}

PagingFileWriter::Block PagingFileWriter::append(const NBX::SO<NBX::DataResource> & data) {
    if (!data) return {};
    const std::uint64_t position = writer_->file().position();
    writer_->write(data->pointer(), data->size());
    return {position, writer_->file().position() - position};
}

std::vector<PagingFileWriter::Block>
PagingFileWriter::writeAtlases(const std::vector<NBX::SO<NBX::Image>> & images) {
    std::vector<Block> blocks;
    blocks.reserve(images.size());
    for (std::size_t i = 0; i < images.size(); i += 2) {
        const NBX::SO<NBX::Image> second = i + 1 < images.size() ? images[i + 1] : nullptr;
        auto other = std::async(std::launch::async, coded, second, format_);
        blocks.push_back(append(coded(images[i], format_)));
        const NBX::SO<NBX::DataResource> data = other.get();
        if (i + 1 < images.size()) blocks.push_back(append(data));
    }
    return blocks;
}

PagingFileWriter::Block PagingFileWriter::writeSource(unsigned number, const NBX::SO<NBX::Image> & image) {
    beginSource(number, image);
    finishSource();
    return *source(number);
}

void PagingFileWriter::beginSource(unsigned number, const NBX::SO<NBX::Image> & image) {
    finishSource();
    if (source(number)) return;
    begun_ = number;
    coding_ = std::async(std::launch::async, codedSource, image, format_);
}

void PagingFileWriter::finishSource() {
    if (!coding_.valid()) return;
    Block block = append(coding_.get());
    if (block.size == 0) {
        if (standIn_.size == 0) standIn_ = append(codedSource(SourceTextures::standIn(), format_));
        block = standIn_;
    }
    sources_[begun_] = block;
}

bool PagingFileWriter::writeSources(const std::vector<unsigned> & numbers, SourceTextures & textures,
                                    const std::function<bool()> & goOn) {
    for (const unsigned number : numbers) {
        const unsigned picture = textures.pictureOf(number);
        if (source(picture)) continue;
        if (!goOn()) return false;
        const unsigned loads = textures.loads();
        beginSource(picture, textures.image(picture, [this] { finishSource(); }));
        // Only an image that was decoded last is sure to be among those that are kept meanwhile.
        if (textures.loads() == loads) finishSource();
    }
    finishSource();
    return true;
}

auto PagingFileWriter::codedSource(const NBX::SO<NBX::Image> & image, TextureFormat format) -> CodedSource {
    if (!image) return {};
    const NBX::SO<NBX::Image> stored = storable(image, format);
    return {stored->width(), stored->height(), coded(stored, format)};
}

PagingFileWriter::Block PagingFileWriter::append(const CodedSource & source) {
    if (!source.data) return {};
    const std::uint64_t position = writer_->file().position();
    appendNumber(*writer_, source.width);
    appendNumber(*writer_, source.height);
    writer_->write(source.data->pointer(), source.data->size());
    return {position, writer_->file().position() - position};
}

const PagingFileWriter::Block * PagingFileWriter::source(unsigned number) const {
    const auto found = sources_.find(number);
    return found == sources_.end() ? nullptr : &found->second;
}

} // namespace ZMT::CORE
