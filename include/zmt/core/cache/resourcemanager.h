#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <iterator>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/container/map/useorder.h>
#include <nbx/object/callback.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/wo.h>
#include <zmt/core/cache/requestqueue.h>
#include <zmt/core/misc/mutex.h>
#include <zmt/core/misc/thread.h>

namespace ZMT::CORE {

/// Maps keys to resources that take long to prepare: a cache within a budget, a queue of requests by
/// priority, and a worker thread that serves them. It is paced by frames.
///
/// `request` answers at once with what is there; what is not is prepared later, or right away where the
/// caller cannot wait. Wanting a resource is repeated every frame: the priorities of a request add up, fade
/// by `s_fading` a frame, and a request that was not repeated for `requestAgeLimit` frames is forgotten.
///
/// (1) Only one preparation runs at a time. (2) A key is prepared once, unless its resource was dropped, or
/// it was demanded at once while it was being prepared. (3) At the end of a frame the cache is cut to the
/// budget, those used longest ago first; what was used since the frame began stays even over budget. (4) The
/// resource of a key that has died goes at the end of the frame. (5) Keys, resources and preparers are
/// released by the threads that call `beginFrame`, `endFrame` and `request`, never by the worker.
/// (6) A preparer that gives null has nothing for the key, which is cached as a resource is. One that throws
/// has failed: until the first frame after `s_retryTime` its key takes no memory and is not prepared again.
/// (7) Of what the worker makes `s_entriesPerFrame` resources enter the cache from one `beginFrame` to the
/// next, in the order in which they were made; the others wait, and the worker rests while `s_mostWaiting`
/// do. So no picture has to take to the card all that came ready since the last one. What is demanded at
/// once, and what has failed, enters at once.
///
/// Everything belongs to the render thread, but for the calls of the preparer, of `sizeOf` and of `now`. The
/// destructor of a subclass calls `shutdown`.
template <class K, class V> class ResourceManager : public Thread {
    using Self = ResourceManager;
    NBX_TEMPLATE_CLASS(Self, Thread)
public:
    using Preparer = NBX::CallbackR1<NBX::SO<V>, NBX::SO<K>>;

    /// From this priority on, the resource is prepared within the call.
    static constexpr double s_immediately = 1e42;
    /// A priority that asks only for what is there, as any that is not above 0.
    static constexpr double s_lookOnly = -1e42;
    /// What is left of a request's priority after one frame.
    static constexpr double s_fading = 0.8;
    /// Seconds without work after which the worker ends; the next frame with requests starts it again.
    static constexpr double s_idleTime = 1.0;
    /// At 1 MiB each, what a card takes in well under the time of a picture.
    static constexpr unsigned s_entriesPerFrame = 4;
    /// Prepared ones that wait for a frame: two frames' worth, so that neither thread waits for the other.
    static constexpr unsigned s_mostWaiting = 2 * s_entriesPerFrame;
    /// Seconds after which what could not be prepared is tried again when it is requested.
    static constexpr double s_retryTime = 10.0;

    /// What came of the preparation of a key.
    enum class Outcome {
        None,   ///< there was none yet, it waits for a frame, or it was dropped
        Done,   ///< the resource is cached; it may be null
        Failed, ///< the preparer threw
    };

    /// `maxMemory` in bytes; `requestAgeLimit` in frames; `idleSleep` in seconds is the worker's pause
    /// between looks into an empty queue; with 0 it sleeps until there is work. Without `multiThreaded` each
    /// `beginFrame` prepares the one resource that the frame before wanted most, and forgets the other
    /// requests.
    ResourceManager(double maxMemory, bool multiThreaded, unsigned requestAgeLimit, double idleSleep)
        : Thread(P_BelowNormal, true), maxMemory_(maxMemory), multiThreaded_(multiThreaded),
          requestAgeLimit_(requestAgeLimit), idleSleep_(idleSleep),
          mutex_(multiThreaded ? new Mutex : nullptr), prepareMutex_(multiThreaded ? new Mutex : nullptr) {}
    ResourceManager(const ResourceManager &) = delete;
    ResourceManager & operator=(const ResourceManager &) = delete;
    ~ResourceManager() override {
        NBX_CHECK(!multiThreaded_ || !isRunning(), L"shutdown() must be called before destruction");
        ResourceManager::shutdown();
    }

    /// The worker: serves requests until none came for `s_idleTime`, or `shutdown` is called.
    void run() override;

    virtual void beginFrame();
    virtual void endFrame();
    /// The resource of `key`, which counts as a use; null when it is not there. A resource that is not there
    /// is queued if `priority` is above 0, and prepared at once from `s_immediately` on; then the call waits
    /// for a preparation that runs. Without `preparer` this is a look only. One that has failed is neither
    /// queued nor prepared until `s_retryTime` has passed. See `outcome` for what null means.
    virtual NBX::SO<V> request(const NBX::SO<K> & key, const NBX::SO<Preparer> & preparer, double priority);
    /// Drops the resource of `key` now.
    virtual void remove(const NBX::SO<K> & key);
    /// Bytes of all that is cached, without what waits for a frame.
    virtual double usedMemory() const;
    virtual double maxMemory() const;
    /// Takes effect at the end of the frame.
    virtual void setMaxMemory(double maxMemory);
    /// Bytes that the resource of `key` takes. Called from any thread.
    virtual double sizeOf(const NBX::SO<K> & key) const = 0;
    /// Ends the worker, after the preparation that it is at.
    virtual void shutdown();
    /// Prepares the resource that is wanted most, the one requested first among equals.
    virtual void prepareOne();
    /// As long as the render thread is not in a call, `None` may turn into something else at any time, the
    /// others not.
    virtual Outcome outcome(const NBX::SO<K> & key) const;

    /// Number of requests that wait, for the worker or, prepared, for a frame, without the one that is being
    /// prepared. May be asked for on any thread.
    std::size_t pendingRequests() const;

protected:
    struct Entry {
        NBX::WO<K> key;
        const K * address; ///< of the key, for the index only
        NBX::SO<V> value;
        double size;
        bool failed = false;
        double retryAt = 0.0; ///< by the clock, when failed
    };
    using Entries = NBX::UseOrder<Entry, double>;
    using Position = typename Entries::Position;
    using Taken = typename Entries::Entries;
    using Queue = RequestQueue<K, Preparer>;
    using Requests = typename Queue::Requests;

    /// The clock; asked on any thread.
    virtual NBX::NBXTime now() const { return NBX::NBXTime::now(); }

    double maxMemory_;
    const bool multiThreaded_;
    const unsigned requestAgeLimit_;
    const double idleSleep_;
    Entries cache_; ///< frames reach from one `beginFrame` to the next
    Taken waiting_; ///< what the worker has made for later frames, the oldest first
    unsigned entriesLeft_ = s_entriesPerFrame; ///< of this frame
    unsigned frame_ = 0;
    Queue requests_;
    /// Guards the cache, its index, what waits, the requests, `released_` and `shutdownRequested_`. Null, as
    /// the next one, without multi-threading. Taken before the next one.
    const NBX::SO<Mutex> mutex_;
    const NBX::SO<Mutex> prepareMutex_; ///< held around every call of a preparer
    bool shutdownRequested_ = false;
    std::condition_variable_any wake_; ///< of the worker: a request has come, or the end

private:
    static constexpr std::chrono::milliseconds s_longestPause{20};

    /// What one call of a preparer gave.
    struct Prepared {
        NBX::SO<V> value;
        double size = 0.0;
        bool failed = true;
    };

    /// Expects `prepareMutex_` to be held.
    Prepared prepare(const NBX::SO<K> & key, Preparer & preparer) const;

    // All of these expect `mutex_` to be held.
    Position find(const K * key);
    Position findWaiting(const K * key);
    bool hasWork() const { return !requests_.isEmpty() && waiting_.size() < s_mostWaiting; }
    void insert(const NBX::SO<K> & key, Prepared prepared);
    void insertOrWait(const NBX::SO<K> & key, Prepared prepared);
    void enter(Position waiting, Taken & entered);
    void enterThoseOfAFrame(Taken & entered);
    void take(Position entry, Taken & taken);
    bool takeMostWanted(Requests & taken);
    void release(Requests & requests);
    void forgetFailures();
    void startWorkerIfNeeded();

    void pause();
    void fadeRequests();
    void dropReleased();

    /// By the address of the key. An entry whose key died may be followed by one for a new key at the same
    /// address; then the index knows the new one only.
    std::unordered_map<const K *, Position> index_;
    /// What the worker is done with.
    std::vector<NBX::SO<NBX::SharedObj>> released_;
};

template <class K, class V> void ResourceManager<K, V>::run() {
    double lastWork = now();
    do {
        bool canWork;
        {
            const MutexLocker lock(mutex_.get());
            if (shutdownRequested_) return;
            canWork = hasWork();
        }
        if (canWork) {
            prepareOne();
            lastWork = now();
        } else {
            pause();
        }
    } while (lastWork + s_idleTime > now());
}

/// A worker that merely gave up its time slices would keep a core busy that the render thread can use.
template <class K, class V> void ResourceManager<K, V>::pause() {
    if (!multiThreaded_ || idleSleep_ > 0.0) {
        sleep(idleSleep_);
        return;
    }
    std::unique_lock lock(*mutex_);
    wake_.wait_for(lock, s_longestPause, [this] { return shutdownRequested_ || hasWork(); });
}

template <class K, class V> void ResourceManager<K, V>::beginFrame() {
    Taken entered;
    {
        const MutexLocker lock(mutex_.get());
        forgetFailures();
        cache_.forgetFrame();
        ++frame_;
        enterThoseOfAFrame(entered);
    }
    if (!multiThreaded_) {
        prepareOne();
        requests_.clear();
        return;
    }
    fadeRequests();
    sleep(0.0);
}

/// Those that are to be tried again. They have no resource, so nothing is released under the mutex.
template <class K, class V> void ResourceManager<K, V>::forgetFailures() {
    Taken dropped;
    for (Position entry = cache_.begin(); entry != cache_.end();) {
        const Position next = std::next(entry);
        if (entry->failed && entry->retryAt <= now()) take(entry, dropped);
        entry = next;
    }
}

template <class K, class V> void ResourceManager<K, V>::fadeRequests() {
    Requests dropped;
    const MutexLocker lock(mutex_.get());
    requests_.fade(s_fading, frame_, requestAgeLimit_, dropped);
    startWorkerIfNeeded();
}

template <class K, class V> void ResourceManager<K, V>::endFrame() {
    dropReleased();
    Taken dropped;
    {
        const MutexLocker lock(mutex_.get());
        for (Position entry = cache_.begin(); entry != cache_.end();) {
            const Position next = std::next(entry);
            if (!entry->key) take(entry, dropped);
            entry = next;
        }
        for (Position entry = waiting_.begin(); entry != waiting_.end();) {
            const Position next = std::next(entry);
            if (!entry->key) dropped.splice(dropped.end(), waiting_, entry);
            entry = next;
        }
        while (usedMemory() > maxMemory()) {
            const Position oldest = cache_.oldest();
            if (oldest == cache_.end()) break;
            take(oldest, dropped);
        }
        if (multiThreaded_) startWorkerIfNeeded();
    }
    if (multiThreaded_) sleep(0.0);
}

template <class K, class V>
NBX::SO<V> ResourceManager<K, V>::request(const NBX::SO<K> & key, const NBX::SO<Preparer> & preparer,
                                          double priority) {
    Taken entered;
    const MutexLocker lock(mutex_.get());
    const Position entry = find(key.get());
    if (entry != cache_.end()) {
        cache_.use(entry, true);
        return entry->value;
    }
    if (!key || !preparer || !(priority > 0.0)) return nullptr;
    const Position waiting = findWaiting(key.get());
    if (waiting != waiting_.end()) {
        if (priority < s_immediately) return nullptr;
        const NBX::SO<V> value = waiting->value;
        enter(waiting, entered);
        return value;
    }
    if (priority < s_immediately) {
        requests_.add(key, preparer, priority, frame_);
        wake_.notify_one();
        return nullptr;
    }
    const MutexLocker preparing(prepareMutex_.get());
    const Prepared prepared = prepare(key, *preparer);
    insert(key, prepared);
    return prepared.value;
}

template <class K, class V>
auto ResourceManager<K, V>::prepare(const NBX::SO<K> & key, Preparer & preparer) const -> Prepared {
    try {
        NBX::SO<V> value = preparer.call(key);
        return {std::move(value), sizeOf(key), false};
    } catch (...) {
        return {};
    }
}

template <class K, class V> void ResourceManager<K, V>::remove(const NBX::SO<K> & key) {
    Taken dropped;
    const MutexLocker lock(mutex_.get());
    const Position entry = find(key.get());
    if (entry != cache_.end()) take(entry, dropped);
    const Position waiting = findWaiting(key.get());
    if (waiting != waiting_.end()) dropped.splice(dropped.end(), waiting_, waiting);
}

template <class K, class V> double ResourceManager<K, V>::usedMemory() const {
    const MutexLocker lock(mutex_.get());
    return cache_.total();
}

template <class K, class V> std::size_t ResourceManager<K, V>::pendingRequests() const {
    const MutexLocker lock(mutex_.get());
    return requests_.size() + waiting_.size();
}

template <class K, class V> double ResourceManager<K, V>::maxMemory() const {
    return maxMemory_;
}

template <class K, class V> void ResourceManager<K, V>::setMaxMemory(double maxMemory) {
    maxMemory_ = maxMemory;
}

template <class K, class V> void ResourceManager<K, V>::shutdown() {
    if (!multiThreaded_ || !isRunning()) return;
    {
        const MutexLocker lock(mutex_.get());
        shutdownRequested_ = true;
    }
    wake_.notify_one();
    while (isRunning())
        sleep(idleSleep_);
}

template <class K, class V> void ResourceManager<K, V>::prepareOne() {
    Requests taken;
    {
        const MutexLocker lock(mutex_.get());
        if (!takeMostWanted(taken)) return;
    }
    const auto & request = taken.front();
    Prepared prepared;
    {
        const MutexLocker preparing(prepareMutex_.get());
        prepared = prepare(request.key, *request.preparer);
    }

    const MutexLocker lock(mutex_.get());
    insertOrWait(request.key, std::move(prepared));
    requests_.takeOneFor(request.key.get(), taken);
    release(taken);
}

template <class K, class V> auto ResourceManager<K, V>::find(const K * key) -> Position {
    const auto found = index_.find(key);
    return found != index_.end() && found->second->key ? found->second : cache_.end();
}

template <class K, class V> auto ResourceManager<K, V>::findWaiting(const K * key) -> Position {
    return std::find_if(waiting_.begin(), waiting_.end(),
                        [key](const Entry & entry) { return entry.address == key && entry.key; });
}

/// A manager without a worker prepares one resource a frame in any case.
template <class K, class V>
void ResourceManager<K, V>::insertOrWait(const NBX::SO<K> & key, Prepared prepared) {
    const bool isLimited = multiThreaded_ && !prepared.failed;
    // One that was demanded at once meanwhile is there.
    if (isLimited && entriesLeft_ == 0 && find(key.get()) == cache_.end()) {
        waiting_.push_back(Entry{NBX::WO<K>(key), key.get(), std::move(prepared.value), prepared.size});
        return;
    }
    if (isLimited && entriesLeft_ > 0) --entriesLeft_;
    insert(key, std::move(prepared));
}

/// One whose key has died does not enter.
template <class K, class V> void ResourceManager<K, V>::enter(Position waiting, Taken & entered) {
    entered.splice(entered.end(), waiting_, waiting);
    if (const NBX::SO<K> key = waiting->key.lock()) insert(key, {waiting->value, waiting->size, false});
}

template <class K, class V> void ResourceManager<K, V>::enterThoseOfAFrame(Taken & entered) {
    for (entriesLeft_ = s_entriesPerFrame; entriesLeft_ > 0 && !waiting_.empty(); --entriesLeft_)
        enter(waiting_.begin(), entered);
    if (!entered.empty()) wake_.notify_one();
}

/// A resource that the key has already is replaced, unless nothing came of it this time.
template <class K, class V> void ResourceManager<K, V>::insert(const NBX::SO<K> & key, Prepared prepared) {
    const double retryAt = prepared.failed ? now() + s_retryTime : 0.0;
    const Position known = find(key.get());
    if (known != cache_.end()) {
        cache_.use(known, true);
        if (prepared.failed && !known->failed) return;
        std::swap(known->value, prepared.value);
        released_.emplace_back(prepared.value.get());
        cache_.resize(known, prepared.size);
        known->failed = prepared.failed;
        known->retryAt = retryAt;
        return;
    }
    index_[key.get()] = cache_.add(
        Entry{NBX::WO<K>(key), key.get(), std::move(prepared.value), prepared.size, prepared.failed, retryAt},
        true);
}

template <class K, class V> auto ResourceManager<K, V>::outcome(const NBX::SO<K> & key) const -> Outcome {
    const MutexLocker lock(mutex_.get());
    const auto found = index_.find(key.get());
    if (found == index_.end() || !found->second->key) return Outcome::None;
    return found->second->failed ? Outcome::Failed : Outcome::Done;
}

template <class K, class V> void ResourceManager<K, V>::take(Position entry, Taken & taken) {
    const auto found = index_.find(entry->address);
    if (found != index_.end() && found->second == entry) index_.erase(found);
    cache_.take(entry, taken);
}

/// Requests whose resource has been demanded at once meanwhile are dropped.
template <class K, class V> bool ResourceManager<K, V>::takeMostWanted(Requests & taken) {
    while (requests_.takeMostWanted(taken)) {
        const K * key = taken.front().key.get();
        if (find(key) == cache_.end() && findWaiting(key) == waiting_.end()) return true;
        release(taken);
    }
    return false;
}

/// Leaves the last word on the lifetime of what the worker held to the render thread.
template <class K, class V> void ResourceManager<K, V>::release(Requests & requests) {
    for (const auto & request : requests) {
        released_.emplace_back(request.key.get());
        released_.emplace_back(request.preparer.get());
    }
    requests.clear();
}

template <class K, class V> void ResourceManager<K, V>::dropReleased() {
    std::vector<NBX::SO<NBX::SharedObj>> released;
    const MutexLocker lock(mutex_.get());
    released.swap(released_);
}

template <class K, class V> void ResourceManager<K, V>::startWorkerIfNeeded() {
    if (hasWork() && !isRunning()) start();
}

} // namespace ZMT::CORE
