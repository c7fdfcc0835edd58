#pragma once

#include <functional>
#include <unordered_set>
#include <utility>
#include <vector>

#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

namespace NBX {

/// What identifies an element of a hash table: the element itself, unless specialised.
template <class T> struct HashTableKey {
    using Type = T;
    static const T & of(const T & element) { return element; }
};

/// Hash set; cannot be stored. Elements are numbered in the order of insertion; removing one gives its
/// number to the last one, so that the order is the same in every run, whatever the hash values are.
template <class T> class NonPersistentHashTable : public SharedObj {
    NBX_TEMPLATE_CLASS(NonPersistentHashTable, SharedObj)
public:
    using Key = typename HashTableKey<T>::Type;

    /// `buckets` is the number of slots at first; it grows by itself.
    explicit NonPersistentHashTable(unsigned buckets = 0)
        : slots_(buckets, SlotHash{&elements_}, SlotEqual{&elements_}) {}
    NonPersistentHashTable(const NonPersistentHashTable &) = delete;
    NonPersistentHashTable & operator=(const NonPersistentHashTable &) = delete;

    unsigned size() const { return static_cast<unsigned>(elements_.size()); }
    bool isEmpty() const { return elements_.empty(); }
    bool contains(const Key & key) const { return slots_.find(key) != slots_.end(); }
    /// The element of this key, or null. Valid until the table changes.
    const T * find(const Key & key) const {
        const auto slot = slots_.find(key);
        return slot == slots_.end() ? nullptr : &elements_[slot->number];
    }
    /// Element `i` in order; `i < size()`.
    const T & element(unsigned i) const { return elements_[i]; }

    /// False when an equal element is there already, which stays.
    bool insert(const T & element) {
        if (contains(HashTableKey<T>::of(element))) return false;
        elements_.push_back(element);
        slots_.insert(Slot{size() - 1});
        return true;
    }
    /// False when there was none.
    bool remove(const Key & key) {
        const auto slot = slots_.find(key);
        if (slot == slots_.end()) return false;
        const unsigned hole = slot->number;
        const unsigned last = size() - 1;
        slots_.erase(slot);
        if (hole != last) {
            slots_.erase(Slot{last});
            std::swap(elements_[hole], elements_[last]);
            slots_.insert(Slot{hole});
        }
        // The element goes when the table is whole again: its end may lead back here.
        [[maybe_unused]] const T removed = std::move(elements_.back());
        elements_.pop_back();
        return true;
    }
    void clear() {
        slots_.clear();
        [[maybe_unused]] const std::vector<T> removed = std::exchange(elements_, {});
    }

    void serialize(SerializationManager &) override {
        const std::wstring name = StringUtils::Utf8String2WString(this->classInfoNBX()->name().text());
        NBX_NOT_IMPLEMENTED(
            name << L"::serialize() not supported: use HashTable<T> for serialization instead!");
    }

protected:
    /// For subclasses that change the part of an element that is not its key.
    T * findElement(const Key & key) { return const_cast<T *>(find(key)); }

private:
    /// The slots hold numbers of elements only, so that no key is kept twice.
    struct Slot {
        unsigned number;
    };
    struct SlotHash {
        using is_transparent = void;
        const std::vector<T> * elements;
        std::size_t operator()(const Key & key) const { return std::hash<Key>()(key); }
        std::size_t operator()(Slot slot) const {
            return (*this)(HashTableKey<T>::of((*elements)[slot.number]));
        }
    };
    struct SlotEqual {
        using is_transparent = void;
        const std::vector<T> * elements;
        bool operator()(Slot a, Slot b) const { return a.number == b.number; }
        bool operator()(const Key & key, Slot slot) const {
            return key == HashTableKey<T>::of((*elements)[slot.number]);
        }
        bool operator()(Slot slot, const Key & key) const { return (*this)(key, slot); }
    };

    std::vector<T> elements_;
    std::unordered_set<Slot, SlotHash, SlotEqual> slots_;
};

} // namespace NBX
