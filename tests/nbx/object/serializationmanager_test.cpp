#include <nbx/object/serializationmanager.h>

#include <gtest/gtest.h>

#include <map>

#include <nbx/math/bounds.h>
#include <support/recordedreports.h>
#include <support/slotorder.h>

using NBX::Bounds;
using NBX::ID;
using NBX::Matrix4x4Base;
using NBX::SharedObj;
using NBX::SO;
using NBX::Vector3Base;
using Manager = NBX::SerializationManager;

namespace {

enum class Mode { Reading, Writing, Describing };

/// Notes the calls; numbers of type int are read from and written to a table.
class Script : public NBX::SerializationManager {
public:
    explicit Script(Mode mode, bool omits = false) : mode_(mode), omits_(omits) {}
    bool isReading() const override { return mode_ == Mode::Reading; }
    bool isWriting() const override { return mode_ == Mode::Writing; }
    bool omitsDefaults() const override { return omits_; }
    bool beginContainer(const char *, const char *) override { return false; }
    void endContainer(const char *, const char *) override {}
    void enterObject() override { log += "enter "; }
    bool rawAttribute(const char *, void *, std::uint64_t) override { return false; }
    using SerializationManager::attribute;
    bool attribute(const char *, bool &) override { return false; }
    bool attribute(const char * name, int & value) override {
        log += std::string(name ? name : "") + " ";
        if (throws) throw NBX::IOError(L"unreadable");
        if (runsOutOfMemory) throw std::bad_alloc();
        if (!isReading()) return values[name] = value, true;
        const auto found = values.find(name);
        if (found != values.end()) value = found->second;
        return found != values.end();
    }
    bool attribute(const char *, unsigned &) override { return false; }
    bool attribute(const char *, unsigned short &) override { return false; }
    bool attribute(const char *, std::uint64_t &) override { return false; }
    bool attribute(const char *, float &) override { return false; }
    bool attribute(const char *, double &) override { return false; }
    bool attribute(const char * name, std::wstring &) override {
        log += std::string(name) + " ";
        return false;
    }
    bool attribute(const char *, Vector3Base<double> &) override { return false; }
    bool attribute(const char *, Bounds &) override { return false; }
    bool attribute(const char *, Matrix4x4Base<double> &) override { return false; }
    bool attribute(const char *, SO<SharedObj> & value) override {
        if (isReading()) value = object;
        return true;
    }
    void separateValues() override {}
    void superclassReference(const ID & name) override {
        log += "reference:" + std::string(name.text()) + " ";
    }
    void beginSuperclass(const char * name) override { log += "begin:" + std::string(name) + " "; }
    void endSuperclass(const char * name) override { log += "end:" + std::string(name) + " "; }

    std::string log;
    std::map<std::string, int> values;
    SO<SharedObj> object;
    bool throws = false, runsOutOfMemory = false;

private:
    Mode mode_;
    bool omits_;
};

class Unregistered : public SharedObj {
    NBX_TEMPLATE_CLASS(Unregistered, SharedObj)
public:
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<SharedObj>(m, this);
        int own = 1;
        m.attribute("own", own);
    }
};

class Derived : public Unregistered {
    NBX_TEMPLATE_CLASS(Derived, Unregistered)
public:
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<Unregistered>(m, this);
    }
};

std::string sharedObj() {
    return typeid(SharedObj).name();
}

TEST(AttributeWithDefault, WritesWhatDiffersFromTheDefault) {
    Script m(Mode::Writing, true);
    int value = 3;
    NBX::attributeWithDefault(m, "a", value, 3);
    EXPECT_TRUE(m.values.empty());
    NBX::attributeWithDefault(m, "a", value, 4);
    EXPECT_EQ(m.values["a"], 3);
}

TEST(AttributeWithDefault, OneThatFailsForOtherReasonsHasTheDefaultWithAReport) {
    Script m(Mode::Reading);
    m.runsOutOfMemory = true;
    int value = 3;
    const RecordedReports reports;
    NBX::attributeWithDefault(m, "a", value, 4);
    EXPECT_EQ(value, 4);
    EXPECT_EQ(reports.count(2, L"false",
                            L"the stored attribute a cannot be read and has its default: std::bad_alloc"),
              1U);
}

TEST(AttributeWithDefault, WritesDefaultsWhereTheyAreNotOmitted) {
    Script m(Mode::Writing, false);
    int value = 3;
    NBX::attributeWithDefault(m, "a", value, 3);
    EXPECT_EQ(m.values["a"], 3);
}

TEST(AttributeWithDefault, ReadsOrTakesTheDefault) {
    Script m(Mode::Reading);
    m.values["a"] = 7;
    int value = 1;
    NBX::attributeWithDefault(m, "a", value, 2);
    EXPECT_EQ(value, 7);
    NBX::attributeWithDefault(m, "b", value, 2);
    EXPECT_EQ(value, 2);
    value = 1;
    m.throws = true;
    NBX::attributeWithDefault(m, "a", value, 5);
    EXPECT_EQ(value, 5);
}

TEST(AttributeWithDefault, UnnamedAttributesAreReported) {
    for (const char * name : {static_cast<const char *>(nullptr), ""}) {
        const RecordedReports reports;
        Script m(Mode::Writing, true);
        int value = 1;
        NBX::attributeWithDefault(m, name, value, 1);
        EXPECT_EQ(reports.count(0, L"attributeName && attributeName[0]",
                                L"cannot use default values for unnamed attributes"),
                  1U)
            << reports;
    }
}

TEST(SerializeSuperclass, BracketsTheParentsPart) {
    Script m(Mode::Writing, true);
    SO<Unregistered>(new Unregistered)->serialize(m);
    EXPECT_EQ(m.log, "enter begin:" + sharedObj() + " enter end:" + sharedObj() + " own ");
}

TEST(SerializeSuperclass, ADescriptionRefersToTheParent) {
    Script m(Mode::Describing);
    SO<Unregistered>(new Unregistered)->serialize(m);
    EXPECT_EQ(m.log, "enter begin:" + sharedObj() + " reference:NBX::SharedObj end:" + sharedObj() + " own ");
}

TEST(SerializeSuperclass, ADescriptionContainsAParentThatIsNotRegistered) {
    Script m(Mode::Describing);
    SO<Derived>(new Derived)->serialize(m);
    EXPECT_NE(m.log.find("own "), std::string::npos);
    EXPECT_EQ(m.log.find("reference:"), m.log.find("reference:NBX::SharedObj"));
}

TEST(SerializationManager, AReferenceOfAnotherClassIsLeftOutAsNull) {
    Script m(Mode::Reading);
    m.object = new SharedObj;
    SO<Unregistered> typed(new Unregistered);
    EXPECT_TRUE(m.attribute("object", typed));
    EXPECT_FALSE(typed);
    m.object = new Derived;
    EXPECT_TRUE(m.attribute("object", typed));
    EXPECT_EQ(typed.get(), m.object.get());
}

TEST(SerializationManager, ObjectNamesAreStored) {
    const RecordedReports reports;
    Script m(Mode::Writing, true);
    const SO<SharedObj> object(new SharedObj);
    object->serialize(m);
    EXPECT_EQ(m.log, "enter ") << "the empty name is the default";
    object->setObjectName(L"x");
    object->serialize(m);
    EXPECT_EQ(m.log, "enter enter objectName ");
    EXPECT_TRUE(reports.empty());
}

TEST(SerializationManager, ASecondRegistrationReplacesTheFactory) {
    const ID name("test::twice");
    EXPECT_FALSE(Manager::isRegistered(name));
    EXPECT_TRUE(Manager::registerClass(name, []() -> SharedObj * { return new SharedObj; }));
    EXPECT_TRUE(Manager::registerClass(name, []() -> SharedObj * { return new Derived; }));
    const SO<SharedObj> made(Manager::newInstance(name));
    EXPECT_TRUE(NBX::soCast<Derived>(made));
}

/// The operation for values of type `T`.
template <class T>
constexpr auto valueOf = static_cast<bool (Manager::*)(const char *, T &)>(&Manager::attribute);

TEST(SerializationManager, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&Manager::isReading, &Manager::isWriting, &Manager::omitsDefaults,
                            &Manager::beginContainer, &Manager::endContainer, &Manager::enterObject,
                            &Manager::rawAttribute, valueOf<bool>, valueOf<int>, valueOf<unsigned>,
                            valueOf<std::uint64_t>, valueOf<float>, valueOf<double>, valueOf<std::wstring>,
                            valueOf<Vector3Base<double>>, valueOf<Bounds>, valueOf<Matrix4x4Base<double>>,
                            valueOf<SO<SharedObj>>, &Manager::separateValues, &Manager::superclassReference,
                            &Manager::beginSuperclass, &Manager::endSuperclass));
}

} // namespace
