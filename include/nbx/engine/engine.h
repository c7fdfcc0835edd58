#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <nbx/container/sequence/stack.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/id.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>
#include <nbx/scene/attribute/polyattribute.h>

namespace NBX {

class Canvas;
class Handler;
class HandlerTable;
class SceneNode;
class Shape;
class Technique;
class ViewInfo;
class Viewport;

/// Runs through scenes: holds the attributes and matrices that are in force, and finds the handlers for
/// shapes and attributes. One engine belongs to one thread.
///
/// Everything pushed is popped by the one who pushed it, in reverse order.
class Engine : public SharedObj {
    NBX_CLASS(Engine, SharedObj)
public:
    /// `canvas` is what the engine draws on; it may be null, and must outlive the engine or call `setCanvas`.
    explicit Engine(Canvas * canvas = nullptr);
    ~Engine() override;

    Canvas * getCanvas() const;
    void setCanvas(Canvas * canvas);

    /// Registers a handler for engines of all classes. The engine owns it to the end of the process. A null
    /// one is reported under "handler" with "no handler".
    static void registerHandler(Handler * handler);
    /// The enabled handler of a service for objects of class `info`: that of the class itself, else of its
    /// nearest parent; null without one. For each class those pushed come first, then those of this class of
    /// engines, and among either the latest.
    Handler * findHandler(const ID & service, const ClassInfo * info) const;
    /// Puts a handler in front of those registered for its target, in this engine, until it is popped. A
    /// handler that stands in a scene node is pushed for what follows in the node. Popping another one than
    /// the one pushed last is reported and does nothing.
    void pushHandler(Handler * handler);
    void popHandler(Handler * handler);

    /// Puts an attribute in force. A disabled mono attribute is left out; its `pop` does nothing.
    void push(Attribute * attribute);
    /// Popping another attribute than the one pushed last in its category is reported and does nothing.
    void pop(Attribute * attribute);
    /// The current attribute of a category; null when there is none or the category is disregarded.
    MonoAttribute * getAttribute(const ID & category) const;
    /// The attributes of a category, the current one on top; null when none was ever pushed. Disregarding
    /// plays no part.
    const Stack<SO<MonoAttribute>> * monoTable(const ID & category) const;
    /// Which poly attributes count, by their state.
    enum PolyStates { PS_Enabled = 1, PS_Disabled = 2, PS_All = 3 };
    /// The poly attributes of a category whose state is in `states`, in the order of pushing.
    unsigned polyAttributeCount(const ID & category, int states) const;
    /// Null for a number out of range, which is reported.
    PolyAttribute * polyAttribute(const ID & category, unsigned i, int states) const;
    /// While a category is disregarded its attributes are stacked, but have no effect. Calls nest.
    void disregard(const ID & category);
    void regard(const ID & category);

    /// Finds the handler of the shape's class and lets it process the shape: the painter first, when there
    /// is none or it declines the simplifier. Disabled shapes, and those without a handler, are left out. A
    /// null shape is reported under "shape" with "no shape".
    void paint(const Shape * shape);
    /// Evaluates the node, in every pass of `technique`; null is plain drawing. Runs may nest.
    void evaluate(SceneNode * node, Technique * technique = nullptr);
    /// The technique of the present run; null for plain drawing.
    Technique * technique() const;
    /// Called for pass effects, top effect first, with what is to be painted under them, which may be called
    /// any number of times. This class paints once, without the effects.
    virtual void paintWithEffects(const std::vector<Attribute *> & topFirst,
                                  const std::function<void()> & paintShapes);

    /// From the frame of what is painted now to the scene.
    const Matrix4x4Base<double> & modelMatrix() const;
    /// Works before the transformations pushed earlier.
    void pushModelMatrix(const Matrix4x4Base<double> & matrix);
    void popModelMatrix();
    /// The camera: from scene to view coordinates, and from there to the cube from -1 to 1.
    const Matrix4x4Base<double> & viewMatrix() const;
    const Matrix4x4Base<double> & projectionMatrix() const;
    void pushCamera(const Matrix4x4Base<double> & view, const Matrix4x4Base<double> & projection);
    void popCamera();
    /// `viewMatrix() * modelMatrix()`.
    const Matrix4x4Base<double> & modelViewMatrix() const;
    /// The view in the frame of the model matrix, with the area of the current viewport.
    SO<const ViewInfo> viewInfo() const;
    /// The current viewport attribute; null without one.
    Viewport * viewport() const;

protected:
    /// Handlers that only this class of engine sees; null for none. The table lives as long as the process.
    virtual const HandlerTable * ownHandlers() const;
    /// Called when the matrices have changed.
    virtual void modelViewChanged() {}
    virtual void projectionChanged() {}
    /// Called when a poly attribute of the category was pushed or popped.
    virtual void polyAttributesChanged(const ID & category) { (void)category; }

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// Pushes an attribute for the life of a block.
class AttributeScope {
public:
    /// `attribute` may be null.
    AttributeScope(Engine * engine, Attribute * attribute) : engine_(engine), attribute_(attribute) {
        if (attribute_) engine_->push(attribute_.get());
    }
    ~AttributeScope() {
        if (attribute_) engine_->pop(attribute_.get());
    }
    AttributeScope(const AttributeScope &) = delete;
    AttributeScope & operator=(const AttributeScope &) = delete;

private:
    Engine * engine_;
    SO<Attribute> attribute_;
};

} // namespace NBX

/// Registers a handler for every engine when its library loads. Stands at the end of its source, inside its
/// namespace.
#define NBX_REGISTER_HANDLER(HandlerClass)                                                                   \
    namespace {                                                                                              \
    [[maybe_unused]] const bool isRegistered##HandlerClass =                                                 \
        (NBX::Engine::registerHandler(new HandlerClass), true);                                              \
    }
