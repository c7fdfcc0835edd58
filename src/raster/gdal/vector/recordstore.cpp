#include "recordstore.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

NBX::SO<NBX::File> newScratchFile() {
    std::error_code error;
    const std::string folder = std::filesystem::temp_directory_path(error).string();
    if (error) throw NBX::IOException(L"no folder for temporary files");
    if (NBX::SO<NBX::File> file = NBX::File::createUnnamed(folder + "/zmt_features")) return file;
    const std::string path = NBX::File::temporaryFileName("zmt_features");
    NBX::SO<NBX::File> file(new NBX::File(path, NBX::WM_Create));
    NBX::File::remove(path);
    return file;
}

} // namespace

RecordStore::RecordStore(const std::string & name, std::size_t memory) : name_(name), memory_(memory) {}

std::uint64_t RecordStore::add(const FeatureRecord & record) {
    constexpr std::size_t block = 1U << 20U;
    if (bytes_.size() > (file_ ? block : memory_)) writeOut();
    const std::uint64_t offset = written_ + bytes_.size();
    record.encode(bytes_);
    return offset;
}

void RecordStore::writeOut() {
    try {
        if (!file_) file_ = newScratchFile();
        file_->write(bytes_.data(), bytes_.size());
    } catch (const NBX::IOException & exception) {
        throw NBX::InputException(L"takes room for temporary files; set TMPDIR to a folder that has more",
                                  name_, 0, exception.message());
    }
    written_ += bytes_.size();
    bytes_.clear();
}

void RecordStore::finish() {
    if (file_) {
        writeOut();
        bytesStart_ = written_;
    }
    bytes_.shrink_to_fit();
}

/// `bytes` bytes at `offset`, which may be read with others `ahead`.
const std::uint8_t * RecordStore::fetch(std::uint64_t offset, std::size_t bytes, std::size_t ahead) {
    if (offset < bytesStart_ || offset + bytes > bytesStart_ + bytes_.size()) {
        bytes_.resize(static_cast<std::size_t>(
            std::min<std::uint64_t>(std::max(bytes, ahead), written_ - std::min(offset, written_))));
        file_->seek(static_cast<std::int64_t>(offset));
        bytes_.resize(static_cast<std::size_t>(file_->read(bytes_.data(), bytes_.size())));
        bytesStart_ = offset;
        if (bytes_.size() < bytes)
            throw NBX::InputException(L"what was read of it is lost; open it again", name_);
    }
    return bytes_.data() + (offset - bytesStart_);
}

void RecordStore::read(std::span<const std::uint64_t> offsets, std::span<const unsigned> fields,
                       const std::function<bool(FeatureRecord &)> & visit) {
    // What lies close together is read together.
    constexpr std::size_t together = 64, least = 2048, most = 512U << 10U;
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        const std::uint64_t way = offsets[std::min(i + together, offsets.size() - 1)] - offsets[i];
        const std::size_t ahead = way < most ? static_cast<std::size_t>(way) + least : least;
        const std::size_t size =
            FeatureRecord::encodedBytes(fetch(offsets[i], FeatureRecord::s_headBytes, ahead));
        record_.decode(fetch(offsets[i], size, ahead), fields);
        if (!visit(record_)) return;
    }
}

} // namespace ZMT::RASTER
