#pragma once

#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/wo.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {
class Engine;
}

namespace ZMT::CORE {

/// What the terrains of a picture drew, up to the next picture of the same engine. A picture is told from the
/// next one by the attribute that its canvas pushes; where there is none, each terrain is a picture.
class DrawnBoxes {
public:
    /// The painting of a terrain begins; true when a picture begins with it. `engine` may be null.
    bool begin(const NBX::Engine * engine);
    /// The painting of a terrain, of which `box` was drawn, ends.
    void end(const NBX::Engine * engine, const NBX::Bounds & box);
    /// What all terrains of the picture before the present one drew; undefined without one.
    NBX::Bounds lastPicture(const NBX::Engine * engine) const;

private:
    struct Pictures {
        NBX::WO<const NBX::Engine> engine;
        NBX::WO<const NBX::MonoAttribute> attribute;
        NBX::Bounds last, present;
    };

    Pictures & of(const NBX::Engine * engine);

    std::vector<Pictures> pictures_; ///< of each engine
};

} // namespace ZMT::CORE
