// Each attribute gets a number, the same one for attributes of equal value. A shape's key is the list of its
// numbers and of what its vertices have; sets of one key are joined.

#include "shapejoin.h"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "attributevalue.h"

namespace NBX {

namespace {

/// Numbers of attributes, by value.
class AttributeNumbers {
public:
    std::uint64_t of(const SO<RenderObj> & object) {
        const auto [entry, isNew] = byObject_.try_emplace(object.get());
        if (isNew) entry->second = {object, numberOfValue(valueOf(*object))};
        return entry->second.second;
    }

private:
    std::uint64_t numberOfValue(const std::string & value) {
        if (value.empty()) return next_++;
        const auto [entry, isNew] = byValue_.try_emplace(value, next_);
        if (isNew) ++next_;
        return entry->second;
    }

    std::uint64_t next_ = 0;
    /// The objects are kept, as their addresses are their names.
    std::unordered_map<const RenderObj *, std::pair<SO<RenderObj>, std::uint64_t>> byObject_;
    std::unordered_map<std::string, std::uint64_t> byValue_;
};

using Key = std::vector<std::uint64_t>;

/// Which attributes the vertices have.
std::uint64_t layoutOf(const PolygonSet & set) {
    std::uint64_t layout = (set.newNormalIterator() ? 1U : 0U) | (set.newColorIterator() ? 2U : 0U);
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        if (set.newTextureIterator(unit)) layout |= std::uint64_t(4) << unit;
    return layout;
}

Key keyOf(const FlatShape & flat, const PolygonSet & set, AttributeNumbers & numbers) {
    Key key{layoutOf(set), flat.context->monos().size()};
    // Attributes of different categories may come in any order.
    std::map<ID, std::uint64_t> monos;
    for (const SO<MonoAttribute> & attribute : flat.context->monos())
        monos[attribute->category()] = numbers.of(attribute);
    for (const auto & [category, number] : monos)
        key.push_back(number);
    for (const SO<RenderObj> & object : flat.context->others())
        key.push_back(numbers.of(object));
    return key;
}

SO<PolygonSet> newColored(const PolygonSet & set, const Color & color) {
    const SO<PolygonSet> result(
        new PolygonSet(set.getPrimitiveType(), set.newVertexIterator(), set.newIndexIterator()));
    const SO<PolygonSet::Vertices> vertices = set.newVertexIterator();
    result->setNormalIterator(set.newNormalIterator());
    result->setColorIterator(new ConstantIterator<Color>(color, vertices ? vertices->size() : 0));
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(set.newTextureIterator(unit), unit);
    result->setObjectName(set.getObjectName());
    return result;
}

/// The colour in force as that of the vertices, where that is what is seen.
FlatShape withBakedColor(const FlatShape & flat) {
    const auto * set = dynamic_cast<const PolygonSet *>(flat.shape.get());
    const ID category = ColorAttribute::ClassNameNBX();
    const auto * color = flat.context->get<ColorAttribute>(category);
    const bool hasMaterial = flat.context->mono(ShapeMaterial::ClassNameNBX()) ||
                             flat.context->mono(ShapeMaterialGL::ClassNameNBX());
    if (!set || !color || hasMaterial) return flat;
    std::vector<SO<MonoAttribute>> monos = flat.context->monos();
    std::erase_if(monos, [&](const SO<MonoAttribute> & mono) { return mono->category() == category; });
    const SO<const AttributeContext> context(new AttributeContext(std::move(monos), flat.context->others()));
    if (set->newColorIterator()) return {flat.shape, context, flat.matrix};
    return {newColored(*set, color->getColor()), context, flat.matrix};
}

/// Sets that become one.
struct Group {
    FlatShape first;
    SO<NonPersistentArray<SO<PolygonSet>>> sets; ///< null for a shape that is no polygon set
    Key key;
};

void appendJoined(const Group & group, std::vector<FlatShape> & result) {
    if (!group.sets || group.sets->size() == 1) {
        result.push_back(group.first);
        return;
    }
    const SO<PolygonSet> joined = PolygonSetTool::mergePolygonSets(group.sets.get());
    if (joined) {
        result.push_back({joined, group.first.context, {}});
        return;
    }
    // Nothing to draw, or too much to be numbered in one set.
    for (const SO<PolygonSet> & set : *group.sets)
        if (set->triangles() > 0) result.push_back({set, group.first.context, {}});
}

class Groups {
public:
    explicit Groups(bool joinAll) : joinAll_(joinAll) {}

    void add(const FlatShape & flat) {
        const SO<PolygonSet> set = soCast<PolygonSet>(flat.shape);
        if (!set) {
            groups.push_back({flat, nullptr, {}});
            return;
        }
        const Key key = keyOf(flat, *set, numbers_);
        Group * group = find(key);
        if (!group) {
            byKey_[key] = groups.size();
            groups.push_back({flat, new NonPersistentArray<SO<PolygonSet>>(), key});
            group = &groups.back();
        }
        group->sets->append(set);
    }

    std::vector<Group> groups;

private:
    Group * find(const Key & key) {
        if (!joinAll_)
            return !groups.empty() && groups.back().sets && groups.back().key == key ? &groups.back()
                                                                                     : nullptr;
        const auto found = byKey_.find(key);
        return found == byKey_.end() ? nullptr : &groups[found->second];
    }

    bool joinAll_;
    AttributeNumbers numbers_;
    std::map<Key, std::size_t> byKey_;
};

} // namespace

std::vector<FlatShape> joinedShapes(std::vector<FlatShape> shapes, bool bakeColors, bool joinAll) {
    Groups groups(joinAll);
    for (FlatShape & flat : shapes) {
        groups.add(bakeColors ? withBakedColor(flat) : flat);
        flat = FlatShape();
    }
    std::vector<FlatShape> result;
    for (Group & group : groups.groups) {
        appendJoined(group, result);
        group = Group();
    }
    return result;
}

} // namespace NBX
