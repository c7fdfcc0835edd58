#pragma once

#include <nbx/container/map/dictionaryitem.h>
#include <nbx/container/sequence/iterator.h>

namespace NBX {

/// The values of a dictionary in the order of its entries. Keeps the entries alive and shows their changes.
template <class K, class V> class DictionaryValueIterator : public Iterator<V> {
    using Base = Iterator<V>;
    using Self = DictionaryValueIterator;
    NBX_TEMPLATE_CLASS(Self, Base)
public:
    using Table = NonPersistentHashTable<DictionaryItem<K, V>>;

    /// A null table is reported and gives an empty sequence.
    explicit DictionaryValueIterator(const Table * table) : table_(table) { NBX_CHECK(table, L"no table"); }

    unsigned size() const override { return table_ ? table_->size() : 0; }
    /// A default value for an index out of range, which is reported.
    V get(unsigned i) const override {
        NBX_CHECK(i < size(), L"i out of range");
        return i < size() ? table_->element(i).value : V();
    }
    const SharedObj * container() const override { return table_.get(); }

private:
    SO<const Table> table_;
};

} // namespace NBX
