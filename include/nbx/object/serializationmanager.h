#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/id.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

class Bounds;
template <class T> class Matrix4x4Base;
template <class T> class Vector3Base;

/// What a class's `serialize` talks to: one function reads and writes. The class-level part knows the
/// classes that can be stored; the stream forms are subclasses. One instance belongs to one thread.
class SerializationManager {
public:
    using Factory = SharedObj * (*)();

    /// Enters a class under its name; called when libraries load. True, also for a second call with the
    /// same name, which replaces the factory.
    static bool registerClass(const ID & name, Factory factory);
    static bool isRegistered(const ID & name);
    /// A new object of a registered class; null for an unknown name.
    static SharedObj * newInstance(const ID & name);

    /// Reports that an attribute could not be read, and why, and that it has its default.
    static void reportDefault(const char * attributeName, const std::exception & failure);

    virtual ~SerializationManager() = default;

    virtual bool isReading() const = 0;
    virtual bool isWriting() const = 0;
    /// While writing: true when attributes that equal their default are left out.
    virtual bool omitsDefaults() const = 0;
    /// Brackets an array; false when reading finds none. Only after true comes `endContainer`.
    virtual bool beginContainer(const char * typeName, const char * attributeName) = 0;
    virtual void endContainer(const char * typeName, const char * attributeName) = 0;
    /// Called first in every `serialize`.
    virtual void enterObject() = 0;
    /// A block of raw bytes; false when it is missing or of another size.
    virtual bool rawAttribute(const char * name, void * pointer, std::uint64_t bytes) = 0;

    /// One named value each; false when reading finds none, and `value` is then as it was.
    virtual bool attribute(const char * name, bool & value) = 0;
    virtual bool attribute(const char * name, int & value) = 0;
    virtual bool attribute(const char * name, unsigned & value) = 0;
    virtual bool attribute(const char * name, unsigned short & value) = 0;
    virtual bool attribute(const char * name, std::uint64_t & value) = 0;
    virtual bool attribute(const char * name, float & value) = 0;
    virtual bool attribute(const char * name, double & value) = 0;
    virtual bool attribute(const char * name, std::wstring & value) = 0;
    virtual bool attribute(const char * name, Vector3Base<double> & value) = 0;
    virtual bool attribute(const char * name, Bounds & value) = 0;
    virtual bool attribute(const char * name, Matrix4x4Base<double> & value) = 0;
    virtual bool attribute(const char * name, SO<SharedObj> & value) = 0;

    /// Called between a container's size and its values.
    virtual void separateValues() = 0;
    /// Records that the parent class has its own entry.
    virtual void superclassReference(const ID & name) = 0;
    virtual void beginSuperclass(const char * typeName) = 0;
    virtual void endSuperclass(const char * typeName) = 0;

    /// While reading: no more bytes than this can still follow. A count that was read is checked against
    /// it before memory is taken. The largest number for streams that are not read.
    virtual std::uint64_t bytesLeft() const { return UINT64_MAX; }

    /// While reading: `object` is not read in full yet, as what it refers to leads to the object that is read
    /// now. A tree in which such a one came to stand below would contain itself.
    virtual bool isBeingRead(const SharedObj * object) const {
        (void)object;
        return false;
    }

    /// A shared object of a given class; one of another class is left out as null.
    template <class T>
    requires(!std::is_same_v<T, SharedObj>) bool attribute(const char * name, SO<T> & value) {
        SO<SharedObj> object(const_cast<std::remove_const_t<T> *>(value.get()));
        if (!attribute(name, object)) return false;
        if (isReading()) value = dynamic_cast<T *>(object.get());
        return true;
    }
};

/// Stores the parent's part of `object`; stands behind `enterObject()` in every `serialize`.
template <class Parent, class T> void serializeSuperclass(SerializationManager & m, T * object) {
    m.beginSuperclass(typeid(Parent).name());
    if (!m.isReading() && !m.isWriting() &&
        (SerializationManager::isRegistered(Parent::ClassNameNBX()) || std::is_same_v<Parent, SharedObj>))
        m.superclassReference(Parent::ClassNameNBX());
    else
        object->Parent::serialize(m);
    m.endSuperclass(typeid(Parent).name());
}

/// An attribute with a default: what is missing or cannot be read gets the default, and what equals it
/// need not be written. Exceptions that are not ours, such as for memory, are reported.
template <class T>
void attributeWithDefault(SerializationManager & m, const char * attributeName, T & value,
                          const std::type_identity_t<T> & defaultValue) {
    NBX_CHECK(attributeName && attributeName[0], L"cannot use default values for unnamed attributes");
    if (m.isReading()) {
        try {
            if (!m.attribute(attributeName, value)) value = defaultValue;
        } catch (const Exception &) {
            value = defaultValue;
        } catch (const std::exception & failure) {
            SerializationManager::reportDefault(attributeName, failure);
            value = defaultValue;
        }
    } else if (!(m.omitsDefaults() && value == defaultValue)) {
        m.attribute(attributeName, value);
    }
}

} // namespace NBX
