#include "drawnboxes.h"

#include <algorithm>

#include <nbx/engine/canvas.h>
#include <nbx/engine/engine.h>

namespace ZMT::CORE {

DrawnBoxes::Pictures & DrawnBoxes::of(const NBX::Engine * engine) {
    std::erase_if(pictures_, [](const Pictures & pictures) { return !pictures.engine; });
    const auto place = std::find_if(pictures_.begin(), pictures_.end(), [engine](const Pictures & pictures) {
        return pictures.engine.lock() == engine;
    });
    if (place != pictures_.end()) return *place;
    pictures_.push_back({NBX::WO<const NBX::Engine>(engine), nullptr, {}, {}});
    return pictures_.back();
}

bool DrawnBoxes::begin(const NBX::Engine * engine) {
    if (!engine) return true;
    Pictures & pictures = of(engine);
    const NBX::SO<const NBX::MonoAttribute> attribute = engine->getAttribute(NBX::Canvas::ClassNameNBX());
    if (attribute && pictures.attribute.lock() == attribute) return false;
    pictures.attribute = NBX::WO<const NBX::MonoAttribute>(attribute);
    pictures.last = pictures.present;
    pictures.present = NBX::Bounds();
    return true;
}

void DrawnBoxes::end(const NBX::Engine * engine, const NBX::Bounds & box) {
    if (engine) of(engine).present += box;
}

NBX::Bounds DrawnBoxes::lastPicture(const NBX::Engine * engine) const {
    for (const Pictures & pictures : pictures_)
        if (engine && pictures.engine.lock() == engine) return pictures.last;
    return {};
}

} // namespace ZMT::CORE
