#pragma once

#include <nbx/container/sequence/nonpersistentstaticarray.h>
#include <nbx/container/sequence/serializevalues.h>

namespace NBX {

/// Sequence of a size fixed at construction, or by the stream it is read from; can be stored.
template <ArrayElement T> class StaticArray : public NonPersistentStaticArray<T> {
    using Base = NonPersistentStaticArray<T>;
    NBX_STORED_TEMPLATE_CLASS(StaticArray, Base)
public:
    using NonPersistentStaticArray<T>::NonPersistentStaticArray;
    /// Empty, for reading.
    StaticArray() : NonPersistentStaticArray<T>(0U) {}

    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
        serializeValues(m, typeid(T).name(), this->values_);
    }
};

} // namespace NBX
