#pragma once

#include <nbx/container/map/nonpersistenthashtable.h>
#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// The elements of a hash table in their order. Keeps the table alive and shows its changes.
template <class T> class HashTableIterator : public Iterator<T> {
    using Base = Iterator<T>;
    NBX_TEMPLATE_CLASS(HashTableIterator, Base)
public:
    /// A null table is reported and gives an empty sequence.
    explicit HashTableIterator(const NonPersistentHashTable<T> * table) : table_(table) {
        NBX_CHECK(table, L"no table");
    }

    unsigned size() const override { return table_ ? table_->size() : 0; }
    /// A default value for an index out of range, which is reported.
    T get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? table_->element(i) : T();
    }
    const SharedObj * container() const override { return table_.get(); }

private:
    SO<const NonPersistentHashTable<T>> table_;
};

} // namespace NBX
