#pragma once

#include <deque>
#include <utility>
#include <vector>

#include <nbx/container/map/nonpersistentdictionary.h>
#include <nbx/container/sequence/iterator.h>
#include <nbx/data/dataresource.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/image/image.h>
#include <zmt/core/misc/mutex.h>
#include <zmt/core/misc/thread.h>

namespace ZMT::CORE {

/// Decodes JPEG files, and turns JPEG mipmap blocks into S3 mipmap blocks, on a thread of its own and one
/// after the other, the first one registered first.
///
/// Requests are named by the resource that holds their input, by identity: the same bytes in two resources
/// are two requests. A resource must not change while it is queued. Who registers one comes back for it: it
/// stays in the table until its result is taken or it is cancelled.
///
/// The thread has no end: once started the object stays until the process ends, which it does not hold up
/// longer than the conversion at hand takes. All operations may be called from any thread; inputs and results
/// are released by those who call them, never by the worker.
class JPGDecompressorThread : public Thread {
    NBX_CLASS(JPGDecompressorThread, Thread)
public:
    enum QueryType : int {
        DecompressJPG = 0, ///< a JPEG file to a `CompressedImage` of the compression `JPEG`
        ConvertToS3 = 1,   ///< as `jpgMipmaps2S3Mipmaps`
    };
    enum State : int {
        Unknown = 0, ///< not in the table
        Queued = 1,
        Running = 2,
        Failed = 3, ///< stays until it is cancelled
        Finished = 4,
    };
    using FinishedRequest = std::pair<NBX::SO<NBX::DataResource>, NBX::SO<NBX::SharedObj>>;

    /// A picture of more pixels is refused, and so is a block whose levels have twice as many together: what
    /// a file claims is no reason to take gigabytes.
    static constexpr unsigned s_mostPixels = 1U << 26;

    JPGDecompressorThread();
    JPGDecompressorThread(const JPGDecompressorThread &) = delete;
    JPGDecompressorThread & operator=(const JPGDecompressorThread &) = delete;
    ~JPGDecompressorThread() override;

    /// Starts the worker, which keeps this object from now on.
    void start();
    /// The work of the worker; does not return.
    void run() override;

    /// Queues a request. A key that is in the table already is queued anew, and its answer so far dropped.
    void registerInputImage(NBX::SO<NBX::DataResource> data, QueryType type);
    State getDecompressionState(NBX::SO<NBX::DataResource> data) const;
    /// Takes the result of a finished request out of the table; null where there is none, and the table stays
    /// as it is then.
    NBX::SO<NBX::SharedObj> getResult(NBX::SO<NBX::DataResource> data);
    /// Takes all finished requests out of the table.
    NBX::SO<NBX::Iterator<FinishedRequest>> getFinishedRequests();
    /// Forgets a request wherever it is; an answer under way is dropped.
    void cancelQuery(NBX::SO<NBX::DataResource> data);

    /// All levels of a picture as JPEG files in one block, the finest first, each half as wide and high as
    /// the one before, as long as both sides have 4 pixels: a byte with the number of levels, then for each
    /// its length in bytes, 32 bits little-endian, and the file. Null where there is no level, which is
    /// reported once in the process.
    static NBX::SO<NBX::MemoryDataResource> buildJPGMipmaps(NBX::SO<NBX::Image> source);
    /// The blocks of DXT1 of all levels of a JPEG mipmap block, the finest first, one behind the other. Null,
    /// and reported, for what is no such block.
    static NBX::SO<NBX::MemoryDataResource> jpgMipmaps2S3Mipmaps(NBX::SO<NBX::DataResource> data);

    /// Width and height of all levels of a JPEG mipmap block, by what stands in front of their pixels; empty
    /// for what is no such block. Reports nothing.
    static std::vector<std::pair<int, int>> levelSizes(const NBX::SO<NBX::DataResource> & data);

private:
    using Key = NBX::SO<NBX::DataResource>;
    template <class V> using Table = NBX::NonPersistentDictionary<Key, V>;

    bool takeNext(Key & key, QueryType & type);
    void serve(Key & key, QueryType type);
    void store(Key & key, NBX::SO<NBX::SharedObj> result);
    /// Expects the mutex to be locked, as the next two.
    void release(Key & key);
    void forget(const Key & key);
    bool isCancelled(const Key & key) const;
    void dropReleased();

    const NBX::SO<Mutex> mutex_; ///< guards all that follows
    std::deque<Key> queue_;
    Table<NBX::SO<NBX::SharedObj>> results_;
    Table<QueryType> queryTypes_; ///< of those in the queue
    Table<State> states_;
    std::vector<Key> cancelled_; ///< while they were running: what the worker makes of them is dropped
    /// What the worker is done with.
    std::vector<NBX::SO<NBX::SharedObj>> released_;
    NBX::SO<JPGDecompressorThread> self_; ///< once started
};

} // namespace ZMT::CORE
