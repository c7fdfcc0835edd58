#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// The attributes that are in force for an object in a scene. Immutable; objects that stand under the same
/// attributes share one.
///
/// Transformations, and whatever else acts by the matrix alone, are no part of it. Lights and clip planes
/// that stand under a transformation are there as copies in the frame of the scene.
class AttributeContext : public SharedObj {
    NBX_CLASS(AttributeContext, SharedObj)
public:
    /// Both in the order of pushing. `others` are poly attributes, pass effects and handlers.
    AttributeContext(std::vector<SO<MonoAttribute>> monos, std::vector<SO<RenderObj>> others);
    ~AttributeContext() override;

    /// The attribute of a category; null without one.
    MonoAttribute * mono(const ID & category) const;
    /// The same as a `T`; null where it is none.
    template <class T> const T * get(const ID & category) const {
        return dynamic_cast<const T *>(mono(category));
    }
    const std::vector<SO<MonoAttribute>> & monos() const { return monos_; }
    const std::vector<SO<RenderObj>> & others() const { return others_; }
    bool isEmpty() const { return monos_.empty() && others_.empty(); }

private:
    std::vector<SO<MonoAttribute>> monos_;
    std::vector<SO<RenderObj>> others_;
};

} // namespace NBX
