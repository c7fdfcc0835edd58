#pragma once

#include <nbx/gl/context/glcanvas.h>
#include <nbx/scene/node/scenenode.h>

namespace ZMT::CORE {

/// Takes off the canvas at its end what was appended during its life.
class AppendedNodes {
public:
    explicit AppendedNodes(NBX::GLCanvas & canvas) : canvas_(canvas), before_(canvas.rootNodes()) {}
    ~AppendedNodes() {
        while (canvas_.rootNodes() > before_)
            canvas_.remove(canvas_.rootNode(canvas_.rootNodes() - 1));
    }
    AppendedNodes(const AppendedNodes &) = delete;
    AppendedNodes & operator=(const AppendedNodes &) = delete;

private:
    NBX::GLCanvas & canvas_;
    const unsigned before_;
};

} // namespace ZMT::CORE
