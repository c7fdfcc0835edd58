#pragma once

#include <vector>

#include <nbx/container/map/nonpersistenthashtable.h>
#include <nbx/container/sequence/serializevalues.h>

namespace NBX {

/// Hash set that can be stored: its elements in their order, in the form of an array.
template <class T> class HashTable : public NonPersistentHashTable<T> {
    using Base = NonPersistentHashTable<T>;
    NBX_STORED_TEMPLATE_CLASS(HashTable, Base)
public:
    using NonPersistentHashTable<T>::NonPersistentHashTable;

    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        std::vector<T> elements;
        for (unsigned i = 0; i < this->size() && !m.isReading(); ++i)
            elements.push_back(this->element(i));
        serializeValues(m, typeid(T).name(), elements);
        if (!m.isReading()) return;
        this->clear();
        for (const T & element : elements)
            this->insert(element);
    }
};

} // namespace NBX
