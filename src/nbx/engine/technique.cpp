#include <nbx/engine/technique.h>

#include <nbx/engine/monoattributepainter.h>
#include <nbx/engine/shapepainter.h>

namespace NBX {

NBX_CLASS_IMPL(Technique, RenderObj)

int Technique::nextUsedPass(int after) const {
    for (int pass = after + 1; pass < maxPasses; ++pass)
        if (usesPass(pass)) return pass;
    return -1;
}

void Technique::start(Engine *) {
    activatePass(nextUsedPass(-1));
}

void Technique::stop(Engine *) {
    activatePass(-1);
}

void Technique::activatePass(int pass) {
    activePass_ = pass;
}

bool Technique::nextPass(Engine *) {
    if (activePass_ >= 0) activatePass(nextUsedPass(activePass_));
    return activePass_ >= 0;
}

bool Technique::usesPass(int pass) const {
    return pass == 0;
}

bool Technique::canBeUsed(Engine *) const {
    return isEnabled();
}

ID Technique::service() const {
    return Painter::ClassNameNBX();
}

bool Technique::process(Engine * engine, Handler * handler, const Shape * shape) {
    auto * painter = dynamic_cast<ShapePainter *>(handler);
    return painter && painter->paint(engine, shape);
}

bool Technique::apply(Engine * engine, Handler * handler, const MonoAttribute * attribute, bool entering) {
    auto * painter = dynamic_cast<MonoAttributePainter *>(handler);
    return painter && painter->apply(engine, attribute, entering);
}

} // namespace NBX
