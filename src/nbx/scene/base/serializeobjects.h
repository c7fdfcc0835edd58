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

/// While reading: leaves out what would come to stand below itself. `Node` is the class of those objects that
/// hold others. In place of a walk for each object, as the stream reads what is below first.
template <class Node, class T>
void leaveOutCircles(const SerializationManager & m, std::vector<SO<T>> & objects) {
    const auto closesCircle = [&m](const SO<T> & object) {
        return dynamic_cast<const Node *>(object.get()) && m.isBeingRead(object.get());
    };
    if (std::erase_if(objects, closesCircle) > 0)
        NBX_FAILURE(L"a stored object contains itself and is left out there");
}

} // namespace NBX
