// What holds for every class of all libraries that can be stored.

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include "nbx/object/registeredclasses.h"
#include <nbx/object/classinfo.h>
#include <nbx/object/exception.h>
#include <nbx/scene/base/renderobj.h>

using Calls = std::vector<std::string>;

namespace {

/// Without the classes of tests.
std::vector<NBX::ID> storedClasses() {
    std::vector<NBX::ID> names = NBX::registeredClasses();
    std::erase_if(names, [](const NBX::ID & name) {
        const std::string text = name.text();
        return text.find("anonymous namespace") != std::string::npos ||
               (text.find("NBX::") == std::string::npos && text.find("ZMT::") == std::string::npos);
    });
    return names;
}

NBX::SO<NBX::SharedObj> made(const NBX::ID & name) {
    return NBX::SerializationManager::newInstance(name);
}

/// Classes that store nothing of their own: they inherit the operation.
constexpr const char * s_withoutOwn[] = {"NBX::Attribute",
                                         "NBX::DataResource",
                                         "NBX::Image",
                                         "NBX::MonoAttribute",
                                         "NBX::PolyAttribute",
                                         "NBX::Projection",
                                         "NBX::Scaling",
                                         "NBX::Shape",
                                         "NBX::Texture2DGL",
                                         "NBX::TexturingEffectGL",
                                         "NBX::Translation",
                                         "ZMT::CORE::DecalTerrainTexturingEffect",
                                         "ZMT::CORE::GRID::GridTerrain",
                                         "ZMT::CORE::GeometryData",
                                         "ZMT::CORE::LensTexture",

                                         "ZMT::CORE::ModulateTerrainTexturingEffect",
                                         "ZMT::CORE::TerrainTexturedGeometry",
                                         "ZMT::CORE::TerrainTexturingEffect",
                                         "ZMT::RASTER::RasterData",
                                         "ZMT::RASTER::TiledGeoImagePyramid"};

bool begins(const NBX::ClassInfo * info, const char * with) {
    return info && std::string(info->name().text()).starts_with(with);
}

/// The class itself, or the first of its parents that stores something.
const NBX::ClassInfo * storing(const NBX::ClassInfo * info) {
    const auto storesNothing = [&] {
        return begins(info, "NBX::Iterator<") ||
               std::any_of(std::begin(s_withoutOwn), std::end(s_withoutOwn),
                           [&](const char * name) { return info->name() == NBX::ID(name); });
    };
    while (storesNothing())
        info = info->parent();
    return info;
}

/// The parent, but for containers, which stand on sequences that cannot be stored, and for trees, in whose
/// files the parent of shapes stands in the place of these.
const NBX::ClassInfo * storedParent(const NBX::ClassInfo * info) {
    if (info->name() == NBX::ID("ZMT::CORE::TexturedTriangleTree")) return info->parent()->parent();
    info = info->parent();
    if (!begins(info, "NBX::NonPersistent") && !begins(info, "NBX::Iterator2D") &&
        !begins(info, "NBX::SpaceTree"))
        return info;
    while (begins(info, "NBX::NonPersistent") || begins(info, "NBX::Iterator") ||
           begins(info, "NBX::SpaceTree"))
        info = info->parent();
    return info;
}

/// Reads the part of a class from `calls`, and says what is wrong there; nothing when all is right.
std::string fault(const Calls & calls, std::size_t & at, const NBX::ClassInfo * info) {
    const auto next = [&] { return at < calls.size() ? calls[at] : "the end"; };
    const auto wrong = [&](const std::string & expected) {
        return std::string(info->name().text()) + ": " + next() + " in the place of " + expected;
    };
    if (next() != "enter") return wrong("enter");
    ++at;
    const NBX::ClassInfo * parent = storedParent(info);
    if (!parent) return {};
    const std::string name = parent->name().text();
    if (next() != "begin " + name) return wrong("begin " + name);
    ++at;
    if (next() == "reference " + name)
        ++at;
    else if (const std::string inner = fault(calls, at, storing(parent)); !inner.empty())
        return inner;
    const auto isOwn = [](const std::string & call) {
        return !call.starts_with("begin ") && !call.starts_with("end ") && call != "enter";
    };
    while (at < calls.size() && isOwn(calls[at]))
        ++at;
    if (next() != "end " + name) return wrong("end " + name);
    ++at;
    return {};
}

TEST(StoredClasses, AreThoseOfAllLibraries) {
    const std::vector<NBX::ID> names = storedClasses();
    EXPECT_GT(names.size(), 60U);
    for (const char * name :
         {"NBX::SceneThing", "NBX::MappedVertexAttributeDataGL", "NBX::MappedVertexAttributeShapeGL",
          "ZMT::CORE::GridData", "ZMT::CORE::GRID::AsyncGridTerrain", "ZMT::CORE::TexturedTriangleTree"})
        EXPECT_NE(std::find(names.begin(), names.end(), NBX::ID(name)), names.end()) << name;
}

TEST(StoredClasses, EnterTheirObjectThenStoreTheirParent) {
    const RecordedReports reports; // of empty objects
    for (const NBX::ID & name : storedClasses()) {
        SCOPED_TRACE(name.text());
        const NBX::SO<NBX::SharedObj> object = made(name);
        ASSERT_TRUE(object);
        EXPECT_EQ(object->classInfoNBX()->name(), name);
        const Calls calls = RecordedAttributes::calls(*object, true);
        std::size_t at = 0;
        EXPECT_EQ(fault(calls, at, storing(object->classInfoNBX())), "") << testing::PrintToString(calls);
        while (at < calls.size() && !calls[at].starts_with("begin ") && calls[at] != "enter")
            ++at;
        EXPECT_EQ(at, calls.size()) << "nothing but attributes follows: " << testing::PrintToString(calls);
    }
}

TEST(StoredClasses, ReferToARegisteredParentWhereNothingIsReadOrWritten) {
    const RecordedReports reports; // of empty objects
    for (const NBX::ID & name : storedClasses()) {
        SCOPED_TRACE(name.text());
        const NBX::SO<NBX::SharedObj> object = made(name);
        const Calls calls = RecordedAttributes::calls(*object, false);
        std::size_t at = 0;
        EXPECT_EQ(fault(calls, at, storing(object->classInfoNBX())), "") << testing::PrintToString(calls);
        const NBX::ClassInfo * parent = storedParent(storing(object->classInfoNBX()));
        const bool hasEntry = parent->name() == NBX::SharedObj::ClassNameNBX() ||
                              NBX::SerializationManager::isRegistered(parent->name());
        ASSERT_GE(calls.size(), 3U);
        EXPECT_EQ(calls[2], hasEntry ? "reference " + std::string(parent->name().text()) : "enter");
    }
}

TEST(StoredClasses, DisabledObjectsAreReadAsSuch) {
    const RecordedReports reports;
    unsigned checked = 0;
    std::set<std::string> refused;
    for (const NBX::ID & name : storedClasses()) {
        SCOPED_TRACE(name.text());
        const auto object = NBX::soCast<NBX::RenderObj>(made(name));
        if (!object) continue;
        for (const bool enabled : {false, true}) {
            object->setEnableState(enabled);
            try {
                const auto read = roundTrip(object);
                ASSERT_TRUE(read);
                EXPECT_EQ(read->isEnabled(), enabled);
                ++checked;
            } catch (const NBX::Exception &) {
                refused.insert(name.text());
            }
        }
    }
    EXPECT_GT(checked, 60U);
    EXPECT_EQ(refused,
              (std::set<std::string>{"ZMT::CORE::GRID::AsyncGridTerrain", "ZMT::CORE::GridData",
                                     "ZMT::CORE::GridPatch", "ZMT::CORE::HybridData", "ZMT::CORE::TinPatch"}))
        << "an empty one is not read";
}

} // namespace
