#pragma once

namespace NBX {

class EngineGL;

/// Brings the clip planes of an engine into effect. A plane keeps the place that it has in the frame in which
/// it is pushed. Those beyond `ClipPlane::maxPlanes` are reported, and cut nothing away.
class ClipPlanesGL {
public:
    /// To be called after a plane was pushed or popped; the engine does so itself.
    static void update(EngineGL * engine);
};

} // namespace NBX
