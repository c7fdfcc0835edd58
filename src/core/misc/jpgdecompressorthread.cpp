// The worker takes the first of the queue under the mutex, converts without it, and puts the answer into the
// table, unless the key was cancelled meanwhile. A process ends when its main function returns, while this
// thread works: the worker says when it is at a conversion, and the last moments of the process, in which
// what the libraries share goes away, wait for that one and let it begin no other.

#include <zmt/core/misc/jpgdecompressorthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <optional>

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/data/datasubresource.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegreader.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(JPGDecompressorThread, Thread)

namespace {

constexpr double s_idleSleep = 0.001;
constexpr int s_smallestSide = 4;
constexpr int s_quality = 75;

/// Keeps the end of the process waiting while a worker is in a conversion.
class ProcessEnd {
public:
    ~ProcessEnd() {
        std::unique_lock lock(mutex_);
        ends_ = true;
        if (isWorker()) return;
        rested_.wait(lock, [this] { return working_ == 0; });
    }
    static ProcessEnd & instance() {
        static ProcessEnd end;
        return end;
    }

    /// Does not return when the process ends.
    void beginWork() {
        isWorker() = true;
        std::unique_lock lock(mutex_);
        if (!ends_) {
            ++working_;
            return;
        }
        lock.unlock();
        for (;;)
            Thread::sleep(1.0);
    }
    void endWork() {
        const std::lock_guard lock(mutex_);
        if (--working_ == 0) rested_.notify_all();
    }

private:
    /// Whether it is one of the workers that ends the process, which is not to wait for itself.
    static bool & isWorker() {
        thread_local bool is = false;
        return is;
    }

    std::mutex mutex_;
    std::condition_variable rested_;
    int working_ = 0;
    bool ends_ = false;
};

/// Readers are for one thread, and both the worker and its users read.
NBX::SO<NBX::Image> readPicture(const NBX::DataResource & data) {
    thread_local const NBX::SO<NBX::JPEGReader> reader(new NBX::JPEGReader);
    reader->setProgressBarEnabled(false);
    reader->setMaxPixels(JPGDecompressorThread::s_mostPixels);
    return reader->read(&data);
}

NBX::SO<NBX::MemoryDataResource> writePicture(const NBX::Image & image) {
    thread_local const NBX::SO<NBX::JPEGWriter> writer(new NBX::JPEGWriter(s_quality));
    return writer->write(&image);
}

NBX::SO<NBX::SharedObj> decompressed(const NBX::DataResource & data) {
    const NBX::SO<NBX::Image> image = readPicture(data);
    if (!image) return nullptr;
    const NBX::SO<NBX::CompressedImage> result(
        new NBX::CompressedImage(NBX::CompressedImage::JPEG, image.get(), L""));
    return result->dataSize() > 0 ? result : nullptr;
}

using Bytes = std::array<unsigned char, 4>;

std::uint32_t numberOf(const Bytes & bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

unsigned char * append(unsigned char * to, std::uint32_t number) {
    for (int i = 0; i < 4; ++i)
        *to++ = static_cast<unsigned char>(number >> (8 * i));
    return to;
}

NBX::SO<NBX::MemoryImage> newPicture(int width, int height) {
    return new NBX::MemoryImage(width, height, NBX::LS_RGB, NBX::Image::UInt8, 8, NBX::ML_Interleaved);
}

using Files = std::vector<NBX::SO<NBX::MemoryDataResource>>;

Files writeLevels(NBX::SO<NBX::Image> image) {
    Files files;
    while (std::min(image->width(), image->height()) >= s_smallestSide) {
        const NBX::SO<NBX::MemoryDataResource> file = writePicture(*image);
        if (!file) break;
        files.push_back(file);
        const NBX::SO<NBX::Image> next =
            newPicture(std::max(1, image->width() / 2), std::max(1, image->height() / 2));
        if (!next->copy(image.get())) break;
        image = next;
    }
    return files;
}

NBX::SO<NBX::MemoryDataResource> joined(const Files & files) {
    std::uint64_t total = 1;
    for (const auto & file : files)
        total += 4 + std::uint64_t{file->size()};
    if (total > UINT32_MAX) {
        NBX_FAILURE(L"jpg compression failed: the mipmaps take " << total << L" bytes");
        return nullptr;
    }
    NBX::SO<NBX::MemoryDataResource> result(new NBX::MemoryDataResource(static_cast<unsigned>(total)));
    auto * const startPtr = static_cast<unsigned char *>(result->pointer());
    unsigned char * ptr = startPtr;
    *ptr++ = static_cast<unsigned char>(files.size());
    for (const auto & file : files) {
        ptr = append(ptr, file->size());
        std::memcpy(ptr, file->pointer(), file->size());
        ptr += file->size();
    }
    if (ptr - startPtr != result->size())
        NBX_REPORT(0, L"(ptr-startPtr)==result->size()", L"internal error: error in data size computation");
    return result;
}

/// Walks over the levels of a JPEG mipmap block.
class Levels {
public:
    explicit Levels(NBX::DataResource & data, bool reports = true) : data_(data), reports_(reports) {
        unsigned char count = 0;
        if (check(1) && data.read(0, &count, 1) == 1) left_ = count;
        hasLevels_ = left_ > 0;
        offset_ = 1;
    }

    bool isAtEnd() const { return left_ == 0; }
    /// Whether there was a level.
    bool hasLevels() const { return hasLevels_; }

    /// The file of the next level; null, and reported, when the block ends before it does.
    NBX::SO<NBX::DataResource> next() {
        Bytes bytes{};
        if (!check(offset_ + bytes.size())) return nullptr;
        data_.read(static_cast<unsigned>(offset_), bytes.data(), bytes.size());
        const std::uint32_t size = numberOf(bytes);
        const std::uint64_t start = offset_ + bytes.size();
        if (!check(start + size)) return nullptr;
        offset_ = start + size;
        --left_;
        return new NBX::DataSubResource(&data_, static_cast<unsigned>(start), size, false);
    }

private:
    bool check(std::uint64_t end) {
        if (end <= data_.size()) return true;
        if (reports_)
            NBX_FAILURE(L"jpg decompression failed: invalid buffer size: " << end << L" != " << data_.size());
        return false;
    }

    NBX::DataResource & data_;
    const bool reports_;
    std::uint64_t offset_ = 0;
    unsigned left_ = 0;
    bool hasLevels_ = false;
};

using Compressed = NBX::SO<NBX::CompressedImage>;

/// Calls `look` with the sides of the levels, by their heads, up to the first that cannot be read; whether
/// there is none such.
template <class Look> bool forEachLevel(NBX::DataResource & data, Look look) {
    for (Levels files(data, false); !files.isAtEnd();) {
        const NBX::SO<NBX::DataResource> file = files.next();
        const auto header = file ? NBX::JPEGReader::readHeader(file.get()) : std::nullopt;
        if (!header) return false;
        look(header->width, header->height);
    }
    return true;
}

/// Whether the levels that can be read have no more pixels together than may be.
bool isModest(NBX::DataResource & data) {
    std::uint64_t pixels = 0;
    forEachLevel(data, [&pixels](int width, int height) {
        pixels += static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    });
    return pixels <= 2 * std::uint64_t{JPGDecompressorThread::s_mostPixels};
}

/// A level in S3 blocks; null, and reported, for what cannot be read.
Compressed compressedLevel(const NBX::DataResource & file) {
    const NBX::SO<NBX::Image> image = readPicture(file);
    if (!image) {
        NBX_FAILURE(L"jpg decompression failed.");
        return nullptr;
    }
    Compressed level(new NBX::CompressedImage(NBX::CompressedImage::DXT1, image.get(), L""));
    if (level->dataSize() > 0) return level;
    NBX_FAILURE(L"s3 compression failed.");
    return nullptr;
}

NBX::SO<NBX::MemoryDataResource> joined(const std::vector<Compressed> & levels, std::uint64_t total) {
    if (total > UINT32_MAX) {
        NBX_FAILURE(L"s3 compression failed.");
        return nullptr;
    }
    NBX::SO<NBX::MemoryDataResource> result(new NBX::MemoryDataResource(static_cast<unsigned>(total)));
    auto * to = static_cast<unsigned char *>(result->pointer());
    for (const Compressed & level : levels) {
        std::memcpy(to, level->rawData()->pointer(NBX::CompressedImage::headerSize), level->dataSize());
        to += level->dataSize();
    }
    return result;
}

} // namespace

JPGDecompressorThread::JPGDecompressorThread() : Thread(P_Normal, true), mutex_(new Mutex) {}

JPGDecompressorThread::~JPGDecompressorThread() = default;

void JPGDecompressorThread::start() {
    {
        const MutexLocker lock(mutex_.get());
        self_ = this;
    }
    ProcessEnd::instance();
    Thread::start();
}

void JPGDecompressorThread::run() {
    const NBX::SO<JPGDecompressorThread> kept(this);
    ProcessEnd & end = ProcessEnd::instance();
    for (;;) {
        Key key;
        QueryType type{};
        end.beginWork();
        const bool hasWork = takeNext(key, type);
        if (hasWork) serve(key, type);
        end.endWork();
        if (!hasWork) sleep(s_idleSleep);
    }
}

bool JPGDecompressorThread::takeNext(Key & key, QueryType & type) {
    const MutexLocker lock(mutex_.get());
    released_.insert(released_.end(), cancelled_.begin(), cancelled_.end());
    cancelled_.clear();
    if (queue_.empty()) return false;
    key.swap(queue_.front());
    queue_.pop_front();
    type = queryTypes_.get(key);
    queryTypes_.remove(key);
    states_.insert(key, Running);
    return true;
}

void JPGDecompressorThread::serve(Key & key, QueryType type) {
    switch (type) {
    case DecompressJPG:
        return store(key, decompressed(*key));
    case ConvertToS3:
        return store(key, jpgMipmaps2S3Mipmaps(key));
    }
    NBX_FAILURE(L"unexpected query type");
    const MutexLocker lock(mutex_.get());
    if (!isCancelled(key)) states_.remove(key);
    release(key);
}

void JPGDecompressorThread::store(Key & key, NBX::SO<NBX::SharedObj> result) {
    const MutexLocker lock(mutex_.get());
    if (!isCancelled(key)) {
        states_.insert(key, result ? Finished : Failed);
        if (result) results_.insert(key, result);
    }
    released_.emplace_back().swap(result);
    release(key);
}

/// The worker is not to be the last that holds it.
void JPGDecompressorThread::release(Key & key) {
    released_.emplace_back(key.get());
    key = nullptr;
}

bool JPGDecompressorThread::isCancelled(const Key & key) const {
    return std::find(cancelled_.begin(), cancelled_.end(), key) != cancelled_.end();
}

void JPGDecompressorThread::dropReleased() {
    std::vector<NBX::SO<NBX::SharedObj>> released;
    const MutexLocker lock(mutex_.get());
    released.swap(released_);
}

void JPGDecompressorThread::forget(const Key & key) {
    const State * state = states_.find(key);
    if (!state) return;
    if (*state == Running) cancelled_.push_back(key);
    states_.remove(key);
    results_.remove(key);
    if (queryTypes_.remove(key)) queue_.erase(std::find(queue_.begin(), queue_.end(), key));
}

void JPGDecompressorThread::registerInputImage(NBX::SO<NBX::DataResource> data, QueryType type) {
    NBX_CHECK(data, L"no data");
    if (!data) return;
    dropReleased();
    const MutexLocker lock(mutex_.get());
    forget(data);
    queue_.push_back(data);
    states_.insert(data, Queued);
    queryTypes_.insert(data, type);
}

auto JPGDecompressorThread::getDecompressionState(NBX::SO<NBX::DataResource> data) const -> State {
    const MutexLocker lock(mutex_.get());
    const State * state = states_.find(data);
    return state ? *state : Unknown;
}

NBX::SO<NBX::SharedObj> JPGDecompressorThread::getResult(NBX::SO<NBX::DataResource> data) {
    dropReleased();
    const MutexLocker lock(mutex_.get());
    const NBX::SO<NBX::SharedObj> * found = results_.find(data);
    if (!found) return nullptr;
    NBX::SO<NBX::SharedObj> result = *found;
    results_.remove(data);
    states_.remove(data);
    return result;
}

NBX::SO<NBX::Iterator<JPGDecompressorThread::FinishedRequest>> JPGDecompressorThread::getFinishedRequests() {
    dropReleased();
    const NBX::SO<NBX::NonPersistentArray<FinishedRequest>> all(new NBX::NonPersistentArray<FinishedRequest>);
    const MutexLocker lock(mutex_.get());
    for (unsigned i = 0; i < results_.size(); ++i)
        all->append({results_.key(i), results_.value(i)});
    for (const FinishedRequest & request : all->stl())
        states_.remove(request.first);
    results_.clear();
    return all;
}

void JPGDecompressorThread::cancelQuery(NBX::SO<NBX::DataResource> data) {
    dropReleased();
    const MutexLocker lock(mutex_.get());
    forget(data);
}

NBX::SO<NBX::MemoryDataResource> JPGDecompressorThread::buildJPGMipmaps(NBX::SO<NBX::Image> source) {
    NBX_CHECK(source, L"no image");
    if (!source) return nullptr;
    if (source->layerSequence() != NBX::LS_RGB && source->width() > 0 && source->height() > 0) {
        const NBX::SO<NBX::MemoryImage> colors = newPicture(source->width(), source->height());
        if (!colors->copy(source.get())) return nullptr;
        source = colors;
    }
    const Files files = writeLevels(source);
    if (!files.empty()) return joined(files);
    static std::atomic<bool> isReported{false};
    if (!isReported.exchange(true)) NBX_FAILURE(L"jpg compression failed. No mipmaps have been created.");
    return nullptr;
}

NBX::SO<NBX::MemoryDataResource>
JPGDecompressorThread::jpgMipmaps2S3Mipmaps(NBX::SO<NBX::DataResource> data) {
    NBX_CHECK(data, L"no data");
    if (!data) return nullptr;
    Levels files(*data);
    const bool isSound = files.hasLevels() && isModest(*data);
    if (data->size() > 0 && !isSound) NBX_FAILURE(L"jpg decompression failed.");
    if (!isSound) return nullptr;
    std::vector<Compressed> levels;
    std::uint64_t total = 0;
    while (!files.isAtEnd()) {
        const NBX::SO<NBX::DataResource> file = files.next();
        if (!file) return nullptr;
        const Compressed level = compressedLevel(*file);
        if (!level) return nullptr;
        total += level->dataSize();
        levels.push_back(level);
    }
    return joined(levels, total);
}

std::vector<std::pair<int, int>> JPGDecompressorThread::levelSizes(const NBX::SO<NBX::DataResource> & data) {
    std::vector<std::pair<int, int>> sizes;
    const auto note = [&sizes](int width, int height) { sizes.emplace_back(width, height); };
    if (!data || !forEachLevel(*data, note)) return {};
    return sizes;
}

} // namespace ZMT::CORE
