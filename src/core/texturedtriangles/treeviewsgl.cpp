#include "treeviewsgl.h"

#include <algorithm>
#include <vector>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/wo.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "visibilitymanagergl.h"

namespace ZMT::CORE {

namespace {

using NBX::SO;
using NBX::WO;

struct View {
    WO<TexturedTriangleTree> tree;
    WO<NBX::EngineGL> engine;
    SO<VisibilityManager> manager;
    bool isDamageKnown = false; ///< of the tree
};

std::vector<View> & views() {
    static std::vector<View> & views = *new std::vector<View>(); // trees may outlive what is static
    return views;
}

/// Those that call `forgetEngine` at their end, once, however many trees they show one after the other.
std::vector<WO<NBX::EngineGL>> & engines() {
    static std::vector<WO<NBX::EngineGL>> & engines = *new std::vector<WO<NBX::EngineGL>>();
    return engines;
}

void removeDeadViews() {
    std::erase_if(views(), [](const View & view) { return !view.tree || !view.engine; });
}

/// Its queries have to go while its context is current.
void forgetEngine(SO<NBX::EngineGL> engine) {
    std::erase_if(views(), [&](const View & view) { return view.engine.lock() == engine; });
    std::erase_if(engines(), [&](const WO<NBX::EngineGL> & known) { return known.lock() == engine; });
}

void know(NBX::EngineGL * engine) {
    std::erase_if(engines(), [](const WO<NBX::EngineGL> & known) { return !known; });
    if (std::any_of(engines().begin(), engines().end(),
                    [engine](const WO<NBX::EngineGL> & known) { return known.lock().get() == engine; }))
        return;
    engines().emplace_back(engine);
    engine->registerCleanUpCallback(new NBX::FunctionCallback1<SO<NBX::EngineGL>>(&forgetEngine));
}

} // namespace

SO<VisibilityManager> TreeViewsGL::managerOf(TexturedTriangleTree * tree, NBX::EngineGL * engine) {
    removeDeadViews();
    bool isDamageKnown = false;
    for (const View & view : views()) {
        const bool isOfEngine = view.engine.lock().get() == engine;
        const bool isOfTree = view.tree.lock().get() == tree;
        if (isOfEngine && isOfTree) return view.manager;
        isDamageKnown = isDamageKnown || (isOfTree && view.isDamageKnown);
    }
    know(engine);
    views().push_back({tree, engine, new VisibilityManager(), isDamageKnown});
    return views().back().manager;
}

bool TreeViewsGL::isDamageNew(const TexturedTriangleTree * tree) {
    bool isNew = false;
    for (View & view : views()) {
        if (view.tree.lock().get() != tree) continue;
        isNew = isNew || !view.isDamageKnown;
        view.isDamageKnown = true;
    }
    return isNew;
}

bool TreeViewsGL::beginsPicture(const NBX::EngineGL * engine) {
    // A canvas pushes an attribute of its own for each picture, which dies with it.
    static WO<NBX::MonoAttribute> & last = *new WO<NBX::MonoAttribute>();
    NBX::MonoAttribute * const picture = engine->getAttribute(NBX::Canvas::ClassNameNBX());
    if (picture && last.lock().get() == picture) return false;
    last = WO<NBX::MonoAttribute>(picture);
    return true;
}

} // namespace ZMT::CORE
