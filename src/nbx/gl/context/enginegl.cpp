// What the context can do is read once. A picture may be larger than the canvas: it is drawn in tiles, by a
// viewport that reaches beyond the tile, and where the driver has none so large, by cropping the view volume
// with the same effect. Matrices and viewports reach OpenGL only while the canvas is current.

#include <nbx/gl/context/enginegl.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <GL/glew.h>

#include "nbx/engine/handlertable.h"
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/gl/context/namegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewport.h>

namespace NBX {

NBX_CLASS_IMPL(EngineGL, Engine)

namespace {

unsigned textureUnitsLimit = 0;

HandlerTable & handlersOfThisClass() {
    static auto * table = new HandlerTable;
    return *table;
}

EngineGL::EffectPainter & effectPainter() {
    static EngineGL::EffectPainter painter = nullptr;
    return painter;
}

std::unordered_map<ID, EngineGL::PolyAttributesPainter> & polyAttributesPainters() {
    static auto * painters = new std::unordered_map<ID, EngineGL::PolyAttributesPainter>;
    return *painters;
}

unsigned integerOf(GLenum name) {
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value > 0 ? unsigned(value) : 0;
}

std::unordered_set<ID> readExtensions() {
    std::unordered_set<ID> result;
    const auto * text = reinterpret_cast<const char *>(glGetString(GL_EXTENSIONS));
    std::istringstream stream(text ? text : "");
    for (std::string name; stream >> name;)
        result.insert(ID(name));
    return result;
}

/// Stretches the part `part` of the viewport `viewport`, both in pixels of one picture, to the cube from -1
/// to 1. For an empty part everything lies outside the cube.
Matrix4x4Base<double> cropMatrix(const Area & viewport, const Area & part) {
    Matrix4x4Base<double> crop;
    if (part.getWidth() == 0 || part.getHeight() == 0) {
        crop(0, 0) = 0.0;
        crop(0, 3) = 2.0;
        return crop;
    }
    const double sx = double(viewport.getWidth()) / part.getWidth();
    const double sy = double(viewport.getHeight()) / part.getHeight();
    const double centerX = 2.0 * (part.getX() - viewport.getX()) + part.getWidth() - viewport.getWidth();
    const double centerY = 2.0 * (part.getY() - viewport.getY()) + part.getHeight() - viewport.getHeight();
    crop(0, 0) = sx;
    crop(0, 3) = -centerX / part.getWidth();
    crop(1, 1) = sy;
    crop(1, 3) = -centerY / part.getHeight();
    return crop;
}

Area intersection(const Area & a, const Area & b) {
    const int left = std::max(a.getX(), b.getX()), bottom = std::max(a.getY(), b.getY());
    const int right = std::min(a.getX() + int(a.getWidth()), b.getX() + int(b.getWidth()));
    const int top = std::min(a.getY() + int(a.getHeight()), b.getY() + int(b.getHeight()));
    if (right <= left || top <= bottom) return Area(left, bottom, 0, 0);
    return Area(left, bottom, unsigned(right - left), unsigned(top - bottom));
}

} // namespace

struct EngineGL::Impl {
    /// The list itself, which the memory manager holds.
    struct List : SharedObj {
        NameGL name;
        unsigned bytes = 0;
    };
    struct DisplayList {
        WO<SharedObj> object;
        std::uint64_t transactionNo;
        WO<List> list;

        bool isValid() const {
            const SO<SharedObj> held = object.lock();
            return held && held->lastTransactionNo() == transactionNo && list;
        }
    };
    using Lists = std::unordered_map<const SharedObj *, DisplayList>;

    unsigned use(const SO<List> & list) {
        latestList = list;
        GraphicsMemoryManager::instance()->use(list.get(), list->bytes);
        return list->name.get();
    }
    void free(Lists::iterator list) {
        const SO<List> held = list->second.list.lock();
        lists.erase(list);
        if (held == latestList) latestList = nullptr;
        if (held) GraphicsMemoryManager::instance()->remove(held.get());
    }
    void freeAll() {
        while (!lists.empty())
            free(lists.begin());
    }

    GLCanvas * canvas = nullptr;
    std::unordered_set<ID> extensions;
    int major = 0, minor = 0;
    unsigned units = 1;
    Lists lists;
    SO<List> latestList; ///< may be larger than the budget
    std::vector<SO<Callback1<SO<EngineGL>>>> cleanUps;
    Area picture;  ///< the whole picture
    Area tile;     ///< the part of it that fills the canvas
    Area viewport; ///< where the camera's view goes, in pixels of the picture
    std::array<unsigned, 2> maxViewport = {0, 0};

    /// A viewport that reaches beyond the tile lets the hardware draw the very pixels that it would draw in
    /// one picture. Only one that is too large for that is cut, together with the view volume.
    bool crops() const {
        return viewport.getWidth() > maxViewport[0] || viewport.getHeight() > maxViewport[1];
    }
    bool isCurrent() const { return canvas && canvas->isContextCurrent(); }
};

EngineGL::EngineGL(GLCanvas * canvas) : Engine(canvas), impl_(std::make_unique<Impl>()) {
    NBX_CHECK(canvas, L"no canvas");
    NBX_CHECK(ContextGL::current(), L"no current context");
    impl_->canvas = canvas;
    if (!ContextGL::current()) return;
    impl_->extensions = readExtensions();
    impl_->units = std::max(1u, integerOf(GL_MAX_TEXTURE_UNITS));
    GLint size[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, size);
    impl_->maxViewport = {unsigned(size[0]), unsigned(size[1])};
    const auto * version = reinterpret_cast<const char *>(glGetString(GL_VERSION));
    if (version) std::sscanf(version, "%d.%d", &impl_->major, &impl_->minor);
}

EngineGL::~EngineGL() {
    impl_->freeAll();
}

unsigned EngineGL::maxTextureUnits() const {
    return textureUnitsLimit ? std::min(textureUnitsLimit, impl_->units) : impl_->units;
}

unsigned EngineGL::textureCoordinateSets() const {
    return impl_->units;
}

void EngineGL::setMaxTextureUnitsLimit(unsigned limit) {
    textureUnitsLimit = limit;
}

unsigned EngineGL::maxTextureUnitsLimit() {
    return textureUnitsLimit;
}

bool EngineGL::hasExtension(const ID & extension) const {
    return impl_->extensions.count(extension) > 0;
}

bool EngineGL::isVersion(int major, int minor) const {
    return impl_->major > major || (impl_->major == major && impl_->minor >= minor);
}

std::string EngineGL::rendererName() const {
    const auto * name = reinterpret_cast<const char *>(glGetString(GL_RENDERER));
    return name ? name : "";
}

unsigned EngineGL::getDisplayList(SharedObj * object) {
    const auto found = impl_->lists.find(object);
    if (found == impl_->lists.end()) return 0;
    if (found->second.isValid()) return impl_->use(found->second.list.lock());
    impl_->free(found);
    return 0;
}

unsigned EngineGL::newDisplayList(SharedObj * object, unsigned bytes) {
    NBX_CHECK(object, L"no object");
    if (!object) return 0;
    if (const auto found = impl_->lists.find(object); found != impl_->lists.end()) impl_->free(found);
    const SO<Impl::List> list(new Impl::List);
    list->name = NameGL::generate(NameGL::NK_DisplayList);
    list->bytes = bytes;
    if (!list->name) return 0;
    impl_->lists.emplace(object, Impl::DisplayList{WO<SharedObj>(object), object->lastTransactionNo(), list});
    return impl_->use(list);
}

std::size_t EngineGL::displayListCount() const {
    return std::size_t(std::count_if(impl_->lists.begin(), impl_->lists.end(),
                                     [](const auto & entry) { return entry.second.isValid(); }));
}

void EngineGL::freeUnusedDisplayLists() {
    for (auto list = impl_->lists.begin(); list != impl_->lists.end();) {
        const auto next = std::next(list);
        if (!list->second.isValid()) impl_->free(list);
        list = next;
    }
}

void EngineGL::registerCleanUpCallback(SO<Callback1<SO<EngineGL>>> callback) {
    NBX_CHECK(callback, L"no callback");
    if (callback) impl_->cleanUps.push_back(callback);
}

void EngineGL::cleanUp() {
    const SO<EngineGL> self(this);
    while (!impl_->cleanUps.empty()) {
        const SO<Callback1<SO<EngineGL>>> callback = impl_->cleanUps.back();
        impl_->cleanUps.pop_back();
        callback->call(self);
    }
    impl_->freeAll();
}

void EngineGL::detachCanvas() {
    impl_->canvas = nullptr;
    setCanvas(nullptr);
}

void EngineGL::registerHandler(Handler * handler) {
    handlersOfThisClass().add(handler);
}

const HandlerTable * EngineGL::ownHandlers() const {
    return &handlersOfThisClass();
}

void EngineGL::setEffectPainter(EffectPainter painter) {
    effectPainter() = painter;
}

void EngineGL::setPolyAttributesPainter(const ID & category, PolyAttributesPainter painter) {
    polyAttributesPainters()[category] = painter;
}

GLCanvas * EngineGL::glCanvas() const {
    return impl_->canvas;
}

void EngineGL::paintWithEffects(const std::vector<Attribute *> & topFirst,
                                const std::function<void()> & paintShapes) {
    if (effectPainter())
        effectPainter()(this, topFirst, paintShapes);
    else
        Engine::paintWithEffects(topFirst, paintShapes);
}

void EngineGL::beginPicture(const Area & picture, const Area & tile) {
    impl_->picture = picture;
    impl_->tile = tile;
    resetViewport();
    modelViewChanged();
}

void EngineGL::setViewport(const Area & area) {
    impl_->viewport = area;
    if (!impl_->isCurrent()) return;
    const Area part = impl_->crops() ? intersection(area, impl_->tile) : area;
    glViewport(part.getX() - impl_->tile.getX(), part.getY() - impl_->tile.getY(), GLsizei(part.getWidth()),
               GLsizei(part.getHeight()));
    projectionChanged();
}

void EngineGL::setMaxViewport(unsigned width, unsigned height) {
    impl_->maxViewport = {width, height};
}

void EngineGL::resetViewport() {
    setViewport(impl_->picture);
}

void EngineGL::projectionChanged() {
    if (!impl_->isCurrent()) return;
    Matrix4x4Base<double> matrix = projectionMatrix();
    if (impl_->crops())
        matrix = cropMatrix(impl_->viewport, intersection(impl_->viewport, impl_->tile)) * matrix;
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(matrix.columns().data());
    glMatrixMode(GL_MODELVIEW);
}

void EngineGL::modelViewChanged() {
    if (!impl_->isCurrent()) return;
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixd(modelViewMatrix().columns().data());
}

void EngineGL::polyAttributesChanged(const ID & category) {
    const auto found = polyAttributesPainters().find(category);
    if (found != polyAttributesPainters().end() && impl_->isCurrent()) found->second(this);
}

} // namespace NBX
