#pragma once

#include <vector>

#include <nbx/container/map/nonpersistentdictionary.h>

namespace NBX {

/// Hash map that can be stored: its entries in their order, in the form of an array.
template <class K, class V> class Dictionary : public NonPersistentDictionary<K, V> {
    using Base = NonPersistentDictionary<K, V>;
    using Self = Dictionary;
    NBX_STORED_TEMPLATE_CLASS(Self, Base)
public:
    using Item = DictionaryItem<K, V>;
    using NonPersistentDictionary<K, V>::NonPersistentDictionary;

    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        std::vector<Item> items;
        for (unsigned i = 0; i < this->size() && !m.isReading(); ++i)
            items.push_back(Item{this->key(i), this->value(i)});
        serializeValues(m, typeid(Item).name(), items);
        if (!m.isReading()) return;
        this->clear();
        for (const Item & item : items)
            this->insert(item.key, item.value);
    }
};

} // namespace NBX
