#pragma once

#include <nbx/container/map/dictionaryitem.h>
#include <nbx/container/map/dictionarykeyiterator.h>
#include <nbx/container/map/dictionaryvalueiterator.h>
#include <nbx/container/map/nonpersistenthashtable.h>

namespace NBX {

/// Hash map; cannot be stored. Entries are ordered as in `NonPersistentHashTable`.
template <class K, class V> class NonPersistentDictionary : public SharedObj {
    using Self = NonPersistentDictionary;
    NBX_TEMPLATE_CLASS(Self, SharedObj)
public:
    using Item = DictionaryItem<K, V>;

    /// `buckets` is the number of slots at first; it grows by itself.
    explicit NonPersistentDictionary(unsigned buckets = 0) : table_(new Table(buckets)) {}
    NonPersistentDictionary(const NonPersistentDictionary &) = delete;
    NonPersistentDictionary & operator=(const NonPersistentDictionary &) = delete;

    unsigned size() const { return table_->size(); }
    bool isEmpty() const { return table_->isEmpty(); }
    bool contains(const K & key) const { return table_->contains(key); }
    /// The value of this key, or null. Valid until an entry is added or removed.
    V * find(const K & key) {
        Item * item = table_->findElement(key);
        return item ? &item->value : nullptr;
    }
    const V * find(const K & key) const {
        const Item * item = table_->find(key);
        return item ? &item->value : nullptr;
    }
    /// The value of this key; a default value for an unknown one, which is reported.
    V get(const K & key) const {
        const V * value = find(key);
        NBX_CHECK(value, L"unknown key");
        return value ? *value : V();
    }
    const K & key(unsigned i) const { return table_->element(i).key; }
    const V & value(unsigned i) const { return table_->element(i).value; }

    /// Adds an entry, or gives the one that is there a new value.
    void insert(const K & key, const V & value) {
        if (V * present = find(key))
            *present = value;
        else
            table_->insert(Item{key, value});
    }
    /// False when there was none.
    bool remove(const K & key) { return table_->remove(key); }
    void clear() { table_->clear(); }

    /// The keys and the values in their order. They keep the entries alive and show changes.
    SO<Iterator<K>> keys() const { return new DictionaryKeyIterator<K, V>(table_.get()); }
    SO<Iterator<V>> values() const { return new DictionaryValueIterator<K, V>(table_.get()); }

    void serialize(SerializationManager &) override {
        const std::wstring name = StringUtils::Utf8String2WString(this->classInfoNBX()->name().text());
        NBX_NOT_IMPLEMENTED(
            name << L"::serialize() not supported: use Dictionary<K, V> for serialization instead!");
    }

private:
    class Table : public NonPersistentHashTable<Item> {
    public:
        using NonPersistentHashTable<Item>::NonPersistentHashTable;
        using NonPersistentHashTable<Item>::findElement;
    };

    SO<Table> table_;
};

} // namespace NBX
