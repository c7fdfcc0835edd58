#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/dataresource.h>
#include <nbx/image/image.h>
#include <zmt/core/texturedtriangles/heldpagingfiles.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

namespace ZMT::CORE {

class SourceTextures;

/// Writes the paging file of a layer, block by block and without gaps. It is a new file, which appears, or
/// takes the place of one of that name, when it is committed; until then nothing of it is to be seen, and
/// nothing stays of one that is given up. Throws `IOException`.
class PagingFileWriter {
public:
    using TextureFormat = TexturedTriangleTree::TextureFormat;
    struct Block {
        std::uint64_t position = 0, size = 0; ///< a size of 0 where there is none
        bool operator==(const Block &) const = default;
    };
    /// Of source textures; larger ones are stored smaller.
    static constexpr int s_largestSide = 8192;

    PagingFileWriter(const std::wstring & path, TextureFormat format);

    /// Of several, two at a time, one of them coded on another thread. Null writes nothing.
    std::vector<Block> writeAtlases(const std::vector<NBX::SO<NBX::Image>> & images);
    /// Width and height, then the image. Written once for each number. Null, and an image that the format
    /// cannot hold, is a small light grey one, which all such numbers share: a leaf is drawn with its source
    /// textures when it has all of them.
    Block writeSource(unsigned number, const NBX::SO<NBX::Image> & image);
    /// The same, coded on another thread, which keeps `image` until `finishSource`, or the next one begins.
    void beginSource(unsigned number, const NBX::SO<NBX::Image> & image);
    void finishSource();
    /// The pictures of those of `numbers` that were not written yet, each by the number of its first texture
    /// (`SourceTextures::pictureOf`). One is coded while the next one is decoded, if `textures` has room for
    /// both. `goOn` is asked between them; false where it was false, and then some are missing.
    bool writeSources(const std::vector<unsigned> & numbers, SourceTextures & textures,
                      const std::function<bool()> & goOn);
    /// The block of a source texture that was written; null before.
    const Block * source(unsigned number) const;
    /// Where paging files are held (`HeldPagingFiles`), the name comes later.
    void commit(const HeldPagingFiles::Fill & fill = {});

    /// The data of a block. Null for an image that the format cannot hold.
    static NBX::SO<NBX::DataResource> coded(const NBX::SO<NBX::Image> & image, TextureFormat format);
    /// A source texture as a block has it: of a size that the card takes, and where the format has blocks of
    /// 4 by 4 texels, with sides that are powers of two from 4 on, since no other levels are whole blocks.
    static NBX::SO<NBX::Image> storable(const NBX::SO<NBX::Image> & image, TextureFormat format);

private:
    /// A source texture on its way into the file.
    struct CodedSource {
        int width = 0, height = 0;
        NBX::SO<NBX::DataResource> data; ///< null for an image that the format cannot hold
    };
    static CodedSource codedSource(const NBX::SO<NBX::Image> & image, TextureFormat format);

    Block append(const NBX::SO<NBX::DataResource> & data);
    /// Of size 0 without data.
    Block append(const CodedSource & source);

    const std::string path_;
    std::unique_ptr<NBX::AtomicFileWriter> writer_;
    const TextureFormat format_;
    std::map<unsigned, Block> sources_; ///< by number
    Block standIn_;                     ///< of size 0 while nobody needs it
    unsigned begun_ = 0;                ///< whose source is coded
    std::future<CodedSource> coding_;
};

} // namespace ZMT::CORE
