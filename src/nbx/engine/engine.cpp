// Handlers first: a chain for each service and class, from the class to its ancestors, is kept until a
// registration or a pushed handler changes it. Then attributes: of mono attributes the top of a stack holds,
// of poly attributes all hold; each remembers the handler that brought it into effect, and the same one ends
// it. Then painting, and the matrices.

#include <nbx/engine/engine.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "handlertable.h"
#include <nbx/engine/attributesimplifier.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/engine/technique.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/node/scenenode.h>
#include <nbx/scene/shape/shape.h>
#include <nbx/scene/view/viewinfo.h>
#include <nbx/scene/view/viewport.h>

namespace NBX {

namespace {

using Matrix = Matrix4x4Base<double>;

/// The handlers of all engines. It stays to the end of the process, as other libraries' handlers lie in it.
HandlerTable & commonHandlers() {
    static auto * table = new HandlerTable();
    return *table;
}

/// How an attribute that is pushed came into effect, so that the same handler ends it.
struct Application {
    Handler * painter = nullptr;
    AttributeSimplifier * simplifier = nullptr;
};

struct MonoTable {
    SO<Stack<SO<MonoAttribute>>> stack{new Stack<SO<MonoAttribute>>()};
    std::vector<Application> applications; ///< one for each element of the stack
    unsigned disregards = 0;

    MonoAttribute * top() const {
        return stack->isEmpty() ? nullptr : stack->pointer()[stack->size() - 1].get();
    }
};

struct Pushed {
    SO<Attribute> attribute;
    AttributeSimplifier * simplifier;
};

struct PushedComposite {
    SO<AttributeComposite> composite;
    std::vector<SO<Attribute>> members;
};

struct View {
    Matrix view, projection;
};

struct HandlerKey {
    ID service;
    const ClassInfo * info;
    bool operator==(const HandlerKey &) const = default;
};

struct HandlerKeyHash {
    std::size_t operator()(const HandlerKey & key) const {
        return key.service.hash() * 31 + std::hash<const ClassInfo *>()(key.info);
    }
};

/// Puts a technique in force for the life of a block, and stops it at the end if it was started: also when
/// the block is left by an exception.
class Run {
public:
    Run(Engine * engine, Technique *& current, Technique * technique)
        : engine_(engine), current_(current), before_(current), technique_(technique) {
        current = technique;
    }
    ~Run() {
        if (isStarted_) technique_->stop(engine_);
        current_ = before_;
    }
    Run(const Run &) = delete;
    Run & operator=(const Run &) = delete;

    void start() {
        technique_->start(engine_);
        isStarted_ = true;
    }

private:
    Engine * engine_;
    Technique *& current_;
    Technique * const before_;
    const SO<Technique> technique_;
    bool isStarted_ = false;
};

bool isInState(const Attribute & attribute, int states) {
    return (states & (attribute.isEnabled() ? 1 : 2)) != 0;
}

} // namespace

struct Engine::Impl {
    Canvas * canvas = nullptr;
    SO<Technique> plainDrawing{new Technique()};
    Technique * technique = plainDrawing.get(); ///< which this or a `Run` holds

    std::unordered_map<ID, MonoTable> monos;
    std::unordered_map<ID, std::vector<Pushed>> polys; ///< also of attributes that are neither kind
    std::vector<PushedComposite> composites;

    std::vector<Matrix> models{Matrix()};
    std::vector<View> cameras{View()};
    Matrix modelView;

    std::vector<SO<Handler>> pushedHandlers;
    mutable std::unordered_map<HandlerKey, std::vector<Handler *>, HandlerKeyHash> chains;
    mutable std::uint64_t chainsOf = 0; ///< number of registrations that the chains know of

    void findPushedHandlers(const ID & service, const ID & target, std::vector<Handler *> & result) const;
    AttributeSimplifier * enterSimplifier(Engine * engine, const Attribute * attribute);
    Application enter(Engine * engine, const MonoAttribute * attribute);
    void leave(Engine * engine, const Application & application, const MonoAttribute * attribute);
    void reapplyTop(Engine * engine, const MonoTable & table);
    void pushMono(Engine * engine, MonoAttribute * attribute);
    void popMono(Engine * engine, MonoAttribute * attribute);
    void popPoly(Engine * engine, Attribute * attribute);
    void pushComposite(Engine * engine, AttributeComposite * composite);
    void popComposite(Engine * engine, AttributeComposite * composite);
    void updateModelView() { modelView = cameras.back().view * models.back(); }
};

NBX_CLASS_IMPL(Engine, SharedObj)

Engine::Engine(Canvas * canvas) : impl_(new Impl()) {
    impl_->canvas = canvas;
}

Engine::~Engine() = default;

Canvas * Engine::getCanvas() const {
    return impl_->canvas;
}

void Engine::setCanvas(Canvas * canvas) {
    impl_->canvas = canvas;
}

void Engine::registerHandler(Handler * handler) {
    commonHandlers().add(handler);
}

const HandlerTable * Engine::ownHandlers() const {
    return nullptr;
}

Handler * Engine::findHandler(const ID & service, const ClassInfo * info) const {
    if (const std::uint64_t known = HandlerTable::registrations(); known != impl_->chainsOf) {
        impl_->chains.clear();
        impl_->chainsOf = known;
    }
    const auto [entry, isNew] = impl_->chains.try_emplace(HandlerKey{service, info});
    std::vector<Handler *> & chain = entry->second;
    if (isNew)
        for (const ClassInfo * level = info; level; level = level->parent()) {
            impl_->findPushedHandlers(service, level->name(), chain);
            if (const HandlerTable * own = ownHandlers()) own->find(service, level->name(), chain);
            commonHandlers().find(service, level->name(), chain);
        }
    const auto enabled = std::find_if(chain.begin(), chain.end(),
                                      [](const Handler * handler) { return handler->isEnabled(); });
    return enabled == chain.end() ? nullptr : *enabled;
}

void Engine::pushHandler(Handler * handler) {
    NBX_CHECK(handler, L"no handler");
    if (!handler) return;
    impl_->pushedHandlers.emplace_back(handler);
    impl_->chains.clear();
}

void Engine::popHandler(Handler * handler) {
    const bool isLast = !impl_->pushedHandlers.empty() && impl_->pushedHandlers.back() == handler;
    NBX_CHECK(isLast, L"handler is not the one pushed last");
    if (!isLast) return;
    impl_->chains.clear();
    impl_->pushedHandlers.pop_back();
}

void Engine::Impl::findPushedHandlers(const ID & service, const ID & target,
                                      std::vector<Handler *> & result) const {
    for (auto handler = pushedHandlers.rbegin(); handler != pushedHandlers.rend(); ++handler)
        if ((*handler)->service() == service && (*handler)->target() == target)
            result.push_back(handler->get());
}

AttributeSimplifier * Engine::Impl::enterSimplifier(Engine * engine, const Attribute * attribute) {
    Handler * handler = engine->findHandler(Simplifier::ClassNameNBX(), attribute->classInfoNBX());
    auto * simplifier = dynamic_cast<AttributeSimplifier *>(handler);
    return simplifier && simplifier->simplify(engine, attribute, true) ? simplifier : nullptr;
}

Application Engine::Impl::enter(Engine * engine, const MonoAttribute * attribute) {
    Handler * painter = engine->findHandler(technique->service(), attribute->classInfoNBX());
    if (painter && technique->apply(engine, painter, attribute, true)) return {painter, nullptr};
    return {nullptr, enterSimplifier(engine, attribute)};
}

void Engine::Impl::leave(Engine * engine, const Application & application, const MonoAttribute * attribute) {
    if (application.painter) technique->apply(engine, application.painter, attribute, false);
    if (application.simplifier) application.simplifier->simplify(engine, attribute, false);
}

void Engine::Impl::reapplyTop(Engine * engine, const MonoTable & table) {
    const MonoAttribute * top = table.top();
    if (!top || table.disregards > 0) return;
    Handler * painter = table.applications.back().painter;
    if (painter) technique->apply(engine, painter, top, true);
}

void Engine::Impl::pushMono(Engine * engine, MonoAttribute * attribute) {
    if (!attribute->isEnabled()) return;
    MonoTable & table = monos[attribute->category()];
    // Stacked before it is applied, as its handlers may look it up.
    table.stack->push(SO<MonoAttribute>(attribute));
    table.applications.emplace_back();
    if (table.disregards > 0) return;
    const std::size_t place = table.applications.size() - 1;
    const Application application = enter(engine, attribute);
    table.applications[place] = application;
}

void Engine::Impl::popMono(Engine * engine, MonoAttribute * attribute) {
    const auto found = monos.find(attribute->category());
    const bool isCurrent = found != monos.end() && found->second.top() == attribute;
    NBX_CHECK(isCurrent || !attribute->isEnabled(), L"attribute is not the one pushed last");
    if (!isCurrent) return;
    MonoTable & table = found->second;
    const SO<MonoAttribute> held(attribute);
    const Application application = table.applications.back();
    if (table.disregards == 0 || application.simplifier) leave(engine, application, attribute);
    table.stack->pop();
    table.applications.pop_back();
    if (application.painter) reapplyTop(engine, table);
}

void Engine::Impl::popPoly(Engine * engine, Attribute * attribute) {
    std::vector<Pushed> & list = polys[attribute->category()];
    const bool isLast = !list.empty() && list.back().attribute == attribute;
    NBX_CHECK(isLast, L"attribute is not the one pushed last");
    if (!isLast) return;
    const Pushed pushed = list.back();
    if (pushed.simplifier) pushed.simplifier->simplify(engine, attribute, false);
    list.pop_back();
    engine->polyAttributesChanged(attribute->category());
}

void Engine::Impl::pushComposite(Engine * engine, AttributeComposite * composite) {
    if (!composite->isEnabled()) return;
    PushedComposite pushed{SO<AttributeComposite>(composite), {}};
    for (unsigned i = 0; i < composite->attributes(); ++i) {
        pushed.members.emplace_back(composite->attribute(i));
        engine->push(composite->attribute(i));
    }
    composites.push_back(std::move(pushed));
}

void Engine::Impl::popComposite(Engine * engine, AttributeComposite * composite) {
    const bool isLast = !composites.empty() && composites.back().composite == composite;
    NBX_CHECK(isLast || !composite->isEnabled(), L"attribute is not the one pushed last");
    if (!isLast) return;
    const PushedComposite pushed = std::move(composites.back());
    composites.pop_back();
    for (auto member = pushed.members.rbegin(); member != pushed.members.rend(); ++member)
        engine->pop(member->get());
}

void Engine::push(Attribute * attribute) {
    NBX_CHECK(attribute, L"no attribute");
    if (!attribute) return;
    if (auto * mono = dynamic_cast<MonoAttribute *>(attribute)) {
        impl_->pushMono(this, mono);
    } else if (auto * composite = dynamic_cast<AttributeComposite *>(attribute)) {
        impl_->pushComposite(this, composite);
    } else {
        std::vector<Pushed> & list = impl_->polys[attribute->category()];
        list.push_back({SO<Attribute>(attribute), nullptr});
        if (attribute->isEnabled()) list.back().simplifier = impl_->enterSimplifier(this, attribute);
        polyAttributesChanged(attribute->category());
    }
}

void Engine::pop(Attribute * attribute) {
    NBX_CHECK(attribute, L"no attribute");
    if (!attribute) return;
    if (auto * mono = dynamic_cast<MonoAttribute *>(attribute))
        impl_->popMono(this, mono);
    else if (auto * composite = dynamic_cast<AttributeComposite *>(attribute))
        impl_->popComposite(this, composite);
    else
        impl_->popPoly(this, attribute);
}

MonoAttribute * Engine::getAttribute(const ID & category) const {
    const auto found = impl_->monos.find(category);
    return found == impl_->monos.end() || found->second.disregards > 0 ? nullptr : found->second.top();
}

const Stack<SO<MonoAttribute>> * Engine::monoTable(const ID & category) const {
    const auto found = impl_->monos.find(category);
    return found == impl_->monos.end() ? nullptr : found->second.stack.get();
}

unsigned Engine::polyAttributeCount(const ID & category, int states) const {
    const auto found = impl_->polys.find(category);
    if (found == impl_->polys.end()) return 0;
    const std::vector<Pushed> & list = found->second;
    return static_cast<unsigned>(std::count_if(list.begin(), list.end(), [&](const Pushed & pushed) {
        return isInState(*pushed.attribute, states);
    }));
}

PolyAttribute * Engine::polyAttribute(const ID & category, unsigned i, int states) const {
    unsigned passed = 0;
    if (const auto found = impl_->polys.find(category); found != impl_->polys.end())
        for (const Pushed & pushed : found->second)
            if (isInState(*pushed.attribute, states) && passed++ == i)
                return dynamic_cast<PolyAttribute *>(pushed.attribute.get());
    NBX_CHECK(i < passed, L"i out of range");
    return nullptr;
}

void Engine::disregard(const ID & category) {
    MonoTable & table = impl_->monos[category];
    if (table.disregards++ > 0 || !table.top()) return;
    if (Handler * painter = table.applications.back().painter)
        impl_->technique->apply(this, painter, table.top(), false);
}

void Engine::regard(const ID & category) {
    MonoTable & table = impl_->monos[category];
    NBX_CHECK(table.disregards > 0, L"category is not disregarded");
    if (table.disregards == 0 || --table.disregards > 0 || !table.top()) return;
    // What was pushed in the meantime has no handler yet. Simplifiers change stacks, and come too late.
    Application & application = table.applications.back();
    if (!application.painter && !application.simplifier)
        application.painter = findHandler(impl_->technique->service(), table.top()->classInfoNBX());
    impl_->reapplyTop(this, table);
}

void Engine::paint(const Shape * shape) {
    NBX_CHECK(shape, L"no shape");
    if (!shape || !shape->isEnabled()) return;
    const ClassInfo * info = shape->classInfoNBX();
    Technique * technique = impl_->technique;
    Handler * handler = findHandler(technique->service(), info);
    if (handler && technique->process(this, handler, shape)) return;
    auto * simplifier = dynamic_cast<ShapeSimplifier *>(findHandler(Simplifier::ClassNameNBX(), info));
    if (simplifier) simplifier->simplify(this, shape);
}

void Engine::evaluate(SceneNode * node, Technique * technique) {
    NBX_CHECK(node, L"no node");
    if (!node) return;
    const SO<SceneNode> held(node);
    Run run(this, impl_->technique, technique ? technique : impl_->plainDrawing.get());
    if (!technique) {
        node->evaluate(this);
    } else if (technique->canBeUsed(this)) {
        run.start();
        for (bool active = technique->activePass() >= 0; active; active = technique->nextPass(this))
            node->evaluate(this);
    }
}

Technique * Engine::technique() const {
    return impl_->plainDrawing == impl_->technique ? nullptr : impl_->technique;
}

void Engine::paintWithEffects(const std::vector<Attribute *> &, const std::function<void()> & paintShapes) {
    paintShapes();
}

const Matrix4x4Base<double> & Engine::modelMatrix() const {
    return impl_->models.back();
}

void Engine::pushModelMatrix(const Matrix4x4Base<double> & matrix) {
    const Matrix product = impl_->models.back() * matrix;
    impl_->models.push_back(product);
    impl_->updateModelView();
    modelViewChanged();
}

void Engine::popModelMatrix() {
    NBX_CHECK(impl_->models.size() > 1, L"no model matrix was pushed");
    if (impl_->models.size() == 1) return;
    impl_->models.pop_back();
    impl_->updateModelView();
    modelViewChanged();
}

const Matrix4x4Base<double> & Engine::viewMatrix() const {
    return impl_->cameras.back().view;
}

const Matrix4x4Base<double> & Engine::projectionMatrix() const {
    return impl_->cameras.back().projection;
}

void Engine::pushCamera(const Matrix4x4Base<double> & view, const Matrix4x4Base<double> & projection) {
    impl_->cameras.push_back({view, projection});
    impl_->updateModelView();
    projectionChanged();
    modelViewChanged();
}

void Engine::popCamera() {
    NBX_CHECK(impl_->cameras.size() > 1, L"no camera was pushed");
    if (impl_->cameras.size() == 1) return;
    impl_->cameras.pop_back();
    impl_->updateModelView();
    projectionChanged();
    modelViewChanged();
}

const Matrix4x4Base<double> & Engine::modelViewMatrix() const {
    return impl_->modelView;
}

SO<const ViewInfo> Engine::viewInfo() const {
    const Viewport * current = viewport();
    return new ViewInfo(modelViewMatrix(), projectionMatrix(), current ? current->getArea() : Area());
}

Viewport * Engine::viewport() const {
    return dynamic_cast<Viewport *>(getAttribute(Viewport::ClassNameNBX()));
}

} // namespace NBX
