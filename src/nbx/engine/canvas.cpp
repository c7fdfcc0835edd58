// A picture brackets a frame of the memory managers, looks for the camera, and evaluates the root nodes in
// their order. Requests for another picture are times; the earliest one counts.

#include <nbx/engine/canvas.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include <nbx/engine/clock.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/viewport.h>

namespace NBX {

namespace {

std::vector<Canvas *> & allCanvases() {
    static std::vector<Canvas *> canvases;
    return canvases;
}

/// Of the list: a thread that prepares data may have a canvas of its own.
std::mutex & listMutex() {
    static std::mutex & mutex = *new std::mutex;
    return mutex;
}

/// Null for what is not evaluated.
const SceneThing * evaluatedThing(const RenderObj * object) {
    const auto * thing = dynamic_cast<const SceneThing *>(object);
    const bool isEvaluated = thing && thing->isEnabled() && (thing->getNodeState() & SceneNode::NS_Renders);
    return isEvaluated ? thing : nullptr;
}

/// The first global camera that stands in a node, or in one below, that is evaluated. Scenes may be deep: the
/// nodes on the way down are kept aside, each with the object to look at next.
SO<Camera> findGlobalCamera(const SceneNode * root) {
    std::vector<std::pair<const SceneThing *, unsigned>> way;
    if (const SceneThing * thing = evaluatedThing(root)) way.emplace_back(thing, 0);
    while (!way.empty()) {
        auto & [thing, next] = way.back();
        if (next == thing->objects()) {
            way.pop_back();
            continue;
        }
        RenderObj * object = thing->object(next++);
        auto * camera = dynamic_cast<Camera *>(object);
        if (camera && camera->isEnabled() && camera->getScope() == Camera::S_Global) return camera;
        if (const SceneThing * below = evaluatedThing(object)) way.emplace_back(below, 0);
    }
    return nullptr;
}

/// What a picture uses is not dropped before its end.
class MemoryFrame {
public:
    MemoryFrame() {
        MainMemoryManager::instance()->beginFrame();
        GraphicsMemoryManager::instance()->beginFrame();
    }
    ~MemoryFrame() {
        GraphicsMemoryManager::instance()->endFrame();
        MainMemoryManager::instance()->endFrame();
    }
    MemoryFrame(const MemoryFrame &) = delete;
    MemoryFrame & operator=(const MemoryFrame &) = delete;
};

} // namespace

NBX_CLASS_IMPL(Canvas, Manager)

Canvas::Canvas(Clock * clock) : Manager(clock) {
    {
        const std::lock_guard lock(listMutex());
        allCanvases().push_back(this);
    }
    this->clock()->watchManager(this);
}

Canvas::~Canvas() {
    const std::lock_guard lock(listMutex());
    std::vector<Canvas *> & canvases = allCanvases();
    canvases.erase(std::find(canvases.begin(), canvases.end(), this));
}

const std::vector<Canvas *> & Canvas::canvasList() {
    return allCanvases();
}

void Canvas::append(SceneNode * node) {
    NBX_CHECK(node, L"no node");
    if (!node) return;
    roots_.emplace_back(node);
    modified();
}

bool Canvas::remove(const SceneNode * node) {
    const auto found = std::find(roots_.begin(), roots_.end(), node);
    if (found == roots_.end()) return false;
    const SO<SceneNode> held = *found;
    roots_.erase(found);
    modified();
    return true;
}

SceneNode * Canvas::rootNode(unsigned i) const {
    NBX_CHECK(i < rootNodes(), L"i out of range");
    return i < rootNodes() ? roots_[i].get() : nullptr;
}

void Canvas::redisplay() {
    clearRedisplayRequests();
    if (const SO<Engine> engine = processor())
        paintRootNodes(engine.get(), Area(0, 0, getWidth(), getHeight()));
}

void Canvas::paintRootNodes(Engine * engine, const Area & viewport) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    const MemoryFrame memoryFrame;
    const std::vector<SO<SceneNode>> roots = roots_;
    SO<Camera> camera;
    for (auto root = roots.begin(); root != roots.end() && !camera; ++root)
        camera = findGlobalCamera(root->get());

    const AttributeScope canvasScope(engine, new ContextData<Canvas *>(ClassNameNBX(), this));
    const AttributeScope viewportScope(engine, new Viewport(viewport));
    const AttributeScope cameraScope(engine, camera.get());
    for (const SO<SceneNode> & root : roots)
        engine->evaluate(root.get());
}

void Canvas::activate() {
    clock()->watchManager(this);
    clock()->hasten();
}

void Canvas::tick(const NBXTime & now) {
    if (isRedisplayEnabled_ && redisplayDue(now)) serveRequest();
}

NBXTime Canvas::nextTick(const NBXTime &) const {
    return isRedisplayEnabled_ && pending_ ? NBXTime(due_) : Clock::never();
}

void Canvas::serveRequest() {
    redisplay();
}

void Canvas::setRedisplayEnabled(bool enabled) {
    isRedisplayEnabled_ = enabled;
    if (enabled) clock()->hasten();
}

void Canvas::postForRedisplay(double seconds) {
    const double due = clock()->now() + std::max(0.0, seconds);
    if (pending_ && due_ <= due) return;
    due_ = due;
    pending_ = true;
    clock()->hasten();
}

void Canvas::postAllForRedisplay(double seconds) {
    for (Canvas * canvas : allCanvases())
        canvas->postForRedisplay(seconds);
}

} // namespace NBX
