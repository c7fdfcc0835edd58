#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/serializationmanager.h>

/// Objects for the tests of the object stream.
namespace streamtest {

using namespace NBX;
using Bytes = std::vector<std::uint8_t>;

/// Knows its live objects, so that circles that damaged streams make can be taken apart.
struct Tracked {
    Tracked() { live().insert(this); }
    virtual ~Tracked() { live().erase(this); }
    virtual SharedObj * object() = 0;
    virtual void release() = 0;

    static std::set<Tracked *> & live();
    static void releaseAll();
};

/// One attribute of every type, without defaults.
class Everything : public SharedObj, public Tracked {
    NBX_STORED_CLASS(Everything, SharedObj)
public:
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        m.attribute("flag", flag);
        m.attribute("int", integer);
        m.attribute("unsigned", number);
        m.attribute("short", shortNumber);
        m.attribute("long", longNumber);
        m.attribute("float", single);
        m.attribute("double", twice);
        m.attribute("text", text);
        m.attribute("vector", vector);
        m.attribute("box", box);
        m.attribute("no box", noBox);
        m.attribute("matrix", matrix);
        m.attribute("object", child);
        m.attribute("nothing", nothing);
        m.rawAttribute("raw", raw, sizeof raw);
    }

    SharedObj * object() override { return this; }
    void release() override { child = nothing = nullptr; }

    bool flag = false;
    int integer = 0;
    unsigned number = 0;
    unsigned short shortNumber = 0;
    std::uint64_t longNumber = 0;
    float single = 0;
    double twice = 0;
    std::wstring text;
    Vector3Base<double> vector;
    Bounds box, noBox;
    Matrix4x4Base<double> matrix;
    SO<SharedObj> child, nothing;
    char raw[5] = {};
};

/// A node of any graph. It notes how much of what it refers to was there when it was read.
class Link : public SharedObj, public Tracked {
    NBX_STORED_CLASS(Link, SharedObj)
public:
    /// Chains are taken down link by link, not by recursion.
    ~Link() override {
        SO<Link> rest = std::move(next);
        while (rest && rest->references() == 1) {
            SO<Link> behind = std::move(rest->next);
            rest = std::move(behind);
        }
    }
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        attributeWithDefault(m, "value", value, 0);
        attributeWithDefault(m, "next", next, SO<Link>());
        if (m.isReading() && next) valueOfNext = next->value;
        attributeWithDefault(m, "other", other, SO<SharedObj>());
        if (m.isReading() && value == s_throwingValue) throw IOError(L"wrong format");
    }

    SharedObj * object() override { return this; }
    void release() override {
        next = nullptr;
        other = nullptr;
    }

    static constexpr int s_throwingValue = -666;
    int value = 0, valueOfNext = -1;
    SO<Link> next;
    SO<SharedObj> other;
};

class List : public SharedObj, public Tracked {
    NBX_STORED_CLASS(List, SharedObj)
public:
    void serialize(SerializationManager & m) override {
        m.enterObject();
        serializeSuperclass<SharedObj>(m, this);
        serializeValues(m, "SO", members);
    }
    SharedObj * object() override { return this; }
    void release() override { members.clear(); }

    std::vector<SO<SharedObj>> members;
};

/// Writes under its own class name what a test scripts.
class Scripted : public SharedObj {
    NBX_STORED_CLASS(Scripted, SharedObj)
public:
    using Script = std::function<void(SerializationManager &)>;
    void serialize(SerializationManager & m) override {
        if (script) script(m);
    }
    static Script script;
};

class Unstorable : public SharedObj {
    NBX_CLASS(Unstorable, SharedObj)
};

/// Reads from an exactly sized block, so that the address sanitizer sees any step beyond its end.
SO<SharedObj> readBytes(const Bytes & bytes);

template <class T> SO<T> roundTrip(const T & object, bool omitsDefaults = true) {
    return soCast<T>(readBytes(ObjectStreamWriter::write(object, omitsDefaults)));
}

/// Writes with the first script and reads with the second.
void transfer(Scripted::Script writing, Scripted::Script reading);

/// With a value in every attribute but one.
SO<Everything> everything();

} // namespace streamtest
