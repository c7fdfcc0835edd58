#pragma once

#include <functional>
#include <vector>

namespace NBX {

class Attribute;
class EngineGL;

/// Draws shapes under texturing effects.
class MultiTexturingGL {
public:
    /// Calls `paintShapes` once for each pass that the effects need, with the state of the pass in force. The
    /// effects stand top first; disabled ones, those of other classes and those without a handler are left
    /// out. Passes behind the first touch only what the first one left visible, for which the shapes must
    /// give the same positions each time. The OpenGL state is as before afterwards.
    ///
    /// Where depth is tested but not written, each pass is tested as the first one. Outer blending holds for
    /// the first pass only.
    static void paint(EngineGL * engine, const std::vector<Attribute *> & topFirst,
                      const std::function<void()> & paintShapes);
};

} // namespace NBX
