#pragma once

namespace NBX {

class EngineGL;

/// Brings the lights of an engine into effect. A light keeps the place that it has in the frame in which it
/// is pushed. Those beyond the driver's number of lights, which is 8 or more, are dark.
class LightsGL {
public:
    /// To be called after a light was pushed or popped; the engine does so itself.
    static void update(EngineGL * engine);
};

} // namespace NBX
