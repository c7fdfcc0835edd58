#pragma once

#include <typeinfo>
#include <vector>

#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/so.h>

namespace NBX {

/// Stores the objects that belong to one attribute: "Size", then one "Value" each. What is read of another
/// class is left out.
template <class T>
void serializeObjects(SerializationManager & m, const char * name, std::vector<SO<T>> & objects) {
    const char * typeName = typeid(std::vector<SO<T>>).name();
    if (m.isReading()) objects.clear();
    if (!m.beginContainer(typeName, name)) return;
    auto size = static_cast<unsigned>(objects.size());
    m.attribute("Size", size);
    m.separateValues();
    if (m.isReading()) {
        if (size > m.bytesLeft()) throw IOError(L"stored list is larger than its file");
        for (unsigned i = 0; i < size; ++i) {
            SO<T> object;
            if (!m.attribute("Value", object)) throw IOError(L"stored list is cut short");
            if (object) objects.push_back(object);
        }
    } else {
        for (SO<T> & object : objects)
            m.attribute("Value", object);
    }
    m.endContainer(typeName, name);
}

} // namespace NBX
