// Counting first, then weak pointers, which form a list on each object under one of 64 locks. The count falls
// without a lock while others hold the object; the last holder locks only where there ever was a weak
// pointer, which alone could bring in another holder. Destructors that let go of the next object are run one
// after the other beyond a depth.

#include <nbx/object/sharedobj.h>

#include <mutex>
#include <utility>
#include <vector>

#include <nbx/object/serializationmanager.h>
#include <nbx/object/wo.h>

namespace NBX {

namespace {

/// Guards the list of weak pointers of an object, and of those that share its stripe by their addresses, so
/// that threads with objects of their own rarely meet. Built on first use and never destroyed, since objects
/// of file scope use it while libraries load and unload.
std::mutex & weakMutex(const SharedObj * object) {
    struct alignas(64) Stripe {
        std::mutex mutex;
    };
    constexpr std::size_t stripes = 64;
    static Stripe * const all = new Stripe[stripes];
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    return all[(address >> 5 ^ address >> 11) % stripes].mutex;
}

std::uint64_t nextTransactionNo() {
    static std::atomic<std::uint64_t> number{0};
    return ++number;
}

/// The destructors of this thread that run within each other.
struct Deletions {
    unsigned depth = 0;
    std::vector<const SharedObj *> * waiting = nullptr; ///< null above the deepest level
};

constinit thread_local Deletions deletions;

/// Below so many destructors within each other, objects wait for the deepest one to end, so that chains of
/// any length need no deep stack. Up to there an object is gone as soon as its last holder lets go of it.
constexpr unsigned s_deepestDeletion = 64;

void destroy(const SharedObj * object) {
    if (deletions.waiting) {
        deletions.waiting->push_back(object);
        return;
    }
    if (++deletions.depth < s_deepestDeletion) {
        delete object;
    } else {
        std::vector<const SharedObj *> waiting{object};
        deletions.waiting = &waiting;
        while (!waiting.empty()) {
            const SharedObj * next = waiting.back();
            waiting.pop_back();
            delete next;
        }
        deletions.waiting = nullptr;
    }
    --deletions.depth;
}

} // namespace

SharedObj::SharedObj() = default;

SharedObj::SharedObj(const SharedObj & other) : Visitable(other) {
    *this = other;
}

SharedObj & SharedObj::operator=(const SharedObj & other) {
    if (this != &other)
        objectName_ = other.objectName_ ? std::make_unique<std::wstring>(*other.objectName_) : nullptr;
    return *this;
}

SharedObj::~SharedObj() {
    if (!everWeak_.load(std::memory_order_acquire)) return;
    const std::lock_guard lock(weakMutex(this));
    clearWeakPointers();
}

const ClassInfo * SharedObj::ClassInfoNBX() {
    static const ClassInfo info(typeid(SharedObj), nullptr);
    return &info;
}

const ID & SharedObj::ClassNameNBX() {
    return ClassInfoNBX()->name();
}

const ClassInfo * SharedObj::classInfoNBX() const {
    return ClassInfoNBX();
}

bool SharedObj::isEqual(const SharedObj * other) const {
    return other && *this == *other;
}

void SharedObj::modified() {
    transactionNo_.store(nextTransactionNo(), std::memory_order_relaxed);
}

std::uint64_t SharedObj::lastTransactionNo() const {
    return transactionNo_.load(std::memory_order_relaxed);
}

const std::wstring & SharedObj::getObjectName() const {
    static const std::wstring & noName = *new std::wstring;
    return objectName_ ? *objectName_ : noName;
}

void SharedObj::setObjectName(const std::wstring & name) {
    if (name == getObjectName()) return;
    objectName_ = std::make_unique<std::wstring>(name);
    modified();
}

void SharedObj::serialize(SerializationManager & m) {
    m.enterObject();
    std::wstring name = getObjectName();
    attributeWithDefault(m, "objectName", name, std::wstring());
    if (m.isReading() && name != getObjectName()) objectName_ = std::make_unique<std::wstring>(name);
}

bool SharedObj::isRegisteredForSerialization() const {
    return false;
}

void SharedObj::acceptChildren(std::vector<Visitable *> & children) const {
    Visitable::acceptChildren(children);
}

bool SharedObj::acceptedImpl(VisitorBase & v, bool pre, VisitMode & mode) {
    auto * typed = dynamic_cast<Visitor<SharedObj> *>(&v);
    if (typed) mode = typed->visit(this, pre);
    return typed != nullptr;
}

VisitMode SharedObj::acceptHierarchyRecursionImpl(VisitorBase & v, bool pre) {
    VisitMode mode;
    if (SharedObj::acceptedImpl(v, pre, mode)) return mode;
    return Visitable::acceptHierarchyRecursionImpl(v, pre);
}

VisitMode SharedObj::accept(VisitorBase & v) {
    VisitMode before = SharedObj::acceptHierarchyRecursionImpl(v, true);
    if (before == VM_Continue) before = visitChildren(v);
    const VisitMode behind = SharedObj::acceptHierarchyRecursionImpl(v, false);
    return before > behind ? before : behind;
}

void SharedObj::ref(const void *) const {
    references_.fetch_add(1, std::memory_order_relaxed);
}

void SharedObj::unref(const void *) const {
    // While others hold the object, only the count falls.
    int count = references_.load(std::memory_order_acquire);
    while (count > 1)
        if (references_.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) return;

    // This is the last holder, so only an existing weak pointer can bring in another.
    if (everWeak_.load(std::memory_order_acquire)) {
        const std::lock_guard lock(weakMutex(this));
        if (references_.fetch_sub(1, std::memory_order_acq_rel) > 1) return;
        clearWeakPointers();
        // The count stands at 1 while the object dies, so that a holder in a destructor does not end it
        // again.
        references_.store(1, std::memory_order_relaxed);
    }
    destroy(this);
}

void SharedObj::registerWO(WOBase * pointer) const {
    const std::lock_guard lock(weakMutex(this));
    link(pointer);
}

void SharedObj::unregisterWO(WOBase * pointer) const {
    const std::lock_guard lock(weakMutex(this));
    if (pointer->object_ == this) unlink(pointer);
}

void SharedObj::link(WOBase * pointer) const {
    everWeak_.store(true, std::memory_order_release);
    pointer->previous_ = nullptr;
    pointer->next_ = weakPointers_;
    if (weakPointers_) weakPointers_->previous_ = pointer;
    weakPointers_ = pointer;
    pointer->object_ = this;
}

void SharedObj::unlink(WOBase * pointer) const {
    (pointer->previous_ ? pointer->previous_->next_ : weakPointers_) = pointer->next_;
    if (pointer->next_) pointer->next_->previous_ = pointer->previous_;
    pointer->previous_ = pointer->next_ = nullptr;
    // The last step: the pointer's thread may end it as soon as it is null.
    pointer->object_ = nullptr;
}

void SharedObj::clearWeakPointers() const {
    while (weakPointers_)
        unlink(weakPointers_);
}

// WOBase: its links belong to the list above, so it lives in this file. Pointers are copied under the lock,
// without counting: an object may watch itself before anybody holds it.

/// Keeps the object of a weak pointer from dying, while it lives.
class WOBase::Watched {
public:
    explicit Watched(const WOBase & pointer) {
        // Which lock it is, tells the object, which may die before it is locked; another one takes its place
        // only by the thread of the pointer.
        while (const SharedObj * object = pointer.object_) {
            std::unique_lock lock(weakMutex(object));
            if (pointer.object_ != object) continue;
            object_ = object;
            lock_ = std::move(lock);
            return;
        }
    }
    /// Null when it has died.
    const SharedObj * object() const { return object_; }

private:
    const SharedObj * object_ = nullptr;
    std::unique_lock<std::mutex> lock_;
};

WOBase::WOBase(const SharedObj * object) {
    if (object) object->registerWO(this);
}

WOBase::WOBase(const WOBase & other) {
    *this = other;
}

WOBase & WOBase::operator=(const WOBase & other) {
    if (this == &other) return *this;
    leave();
    const Watched watched(other);
    if (watched.object()) watched.object()->link(this);
    return *this;
}

WOBase::~WOBase() {
    leave();
}

void WOBase::leave() {
    const Watched watched(*this);
    if (watched.object()) watched.object()->unlink(this);
}

const SharedObj * WOBase::lockedObject() const {
    const Watched watched(*this);
    if (watched.object()) watched.object()->ref(this);
    return watched.object();
}

bool WOBase::isNull() const {
    return object_ == nullptr;
}

} // namespace NBX
