#pragma once

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/container/sequence/serializevalues.h>

namespace NBX {

/// Growable sequence in contiguous memory that can be stored.
template <ArrayElement T> class Array : public NonPersistentArray<T> {
    using Base = NonPersistentArray<T>;
    NBX_STORED_TEMPLATE_CLASS(Array, Base)
public:
    using NonPersistentArray<T>::NonPersistentArray;

    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        serializeValues(m, typeid(T).name(), this->values_);
    }
};

} // namespace NBX
