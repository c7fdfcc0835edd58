#include "tileencoder.h"

#include <algorithm>
#include <utility>

#include <nbx/data/dataresource.h>
#include <nbx/data/zlibfilter.h>

#include "tilepixels.h"

namespace ZMT::UTIL {

namespace {

/// The level that other writers of images take as well.
constexpr unsigned deflateLevel = 6;
constexpr std::size_t tilesPerThread = 4;

unsigned numberOfThreads() {
    return std::max(1U, std::thread::hardware_concurrency());
}

bool isBlank(const NBX::Image & image) {
    const std::size_t bytes =
        NBX::Image::bytesPerLine(image.width(), image.layerSequence(), image.dataType(), 1);
    for (int y = 0; y < image.height(); ++y) {
        const auto * line = static_cast<const std::uint8_t *>(image.lineComponents(y));
        if (std::any_of(line, line + bytes, [](std::uint8_t byte) { return byte != 0; })) return false;
    }
    return true;
}

} // namespace

TileEncoder::TileEncoder(CompressedTexture::PixelFormat format, bool deflates,
                         std::function<void(const EncodedTile &)> write)
    : format_(format), deflates_(deflates), write_(std::move(write)) {
    for (unsigned i = 0; i < numberOfThreads(); ++i)
        threads_.emplace_back([this] { work(); });
}

TileEncoder::~TileEncoder() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stops_ = true;
        waiting_.clear();
    }
    jobAdded_.notify_all();
    for (std::thread & thread : threads_)
        thread.join();
}

void TileEncoder::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        jobAdded_.wait(lock, [this] { return stops_ || !waiting_.empty(); });
        if (stops_) return;
        const std::shared_ptr<Job> job = waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        try {
            encode(*job);
        } catch (...) {
            job->failure = std::current_exception();
        }
        lock.lock();
        job->done = true;
        jobDone_.notify_one();
    }
}

void TileEncoder::encode(Job & job) const {
    const NBX::SO<NBX::Image> image = std::exchange(job.image, nullptr);
    if (TilePixels::hasAlpha(format_) && isBlank(*image)) return;
    std::vector<std::uint8_t> bytes = TilePixels::encode(format_, *image);
    if (deflates_) {
        const NBX::SO<NBX::DataResource> packed =
            NBX::ZLibFilter::compress(bytes.data(), static_cast<unsigned>(bytes.size()), deflateLevel);
        // The size alone tells readers that a tile is deflated.
        if (packed && packed->size() < bytes.size()) {
            const auto * first = static_cast<const std::uint8_t *>(packed->pointer());
            bytes.assign(first, first + packed->size());
        }
    }
    job.tile.bytes = std::move(bytes);
}

void TileEncoder::writeUntil(std::size_t left) {
    while (!ordered_.empty()) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            if (ordered_.size() > left)
                jobDone_.wait(lock, [this] { return ordered_.front()->done; });
            else if (!ordered_.front()->done)
                return;
        }
        const std::shared_ptr<Job> job = ordered_.front();
        ordered_.pop_front();
        if (job->failure) std::rethrow_exception(job->failure);
        write_(job->tile);
    }
}

void TileEncoder::add(std::uint64_t index, NBX::SO<NBX::Image> image) {
    const auto job = std::make_shared<Job>();
    job->tile.index = index;
    job->image = std::move(image);
    ordered_.push_back(job);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        waiting_.push_back(job);
    }
    jobAdded_.notify_one();
    writeUntil(tilesPerThread * threads_.size());
}

void TileEncoder::finish() {
    writeUntil(0);
}

} // namespace ZMT::UTIL
