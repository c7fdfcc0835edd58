#include <nbx/engine/attributesimplifier.h>
#include <nbx/engine/engine.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/viewport.h>

namespace NBX {

namespace {

/// Puts the matrices of cameras in force.
class CameraSimplifier : public AttributeSimplifier {
    NBX_TEMPLATE_CLASS(CameraSimplifier, AttributeSimplifier)
public:
    ID target() const override { return Camera::ClassNameNBX(); }
    bool isSimple() const override { return true; }

    bool simplify(Engine * engine, const Attribute * attribute, bool entering) override {
        const auto * camera = dynamic_cast<const Camera *>(attribute);
        if (!camera) return false;
        if (entering)
            enter(engine, *camera);
        else
            engine->popCamera();
        return true;
    }

private:
    static void enter(Engine * engine, const Camera & camera) {
        const Viewport * viewport = engine->viewport();
        const Area area = viewport ? viewport->getArea() : Area();
        engine->pushCamera(camera.viewMatrix(), camera.projectionMatrix(area.getWidth(), area.getHeight()));
    }
};

} // namespace

NBX_REGISTER_HANDLER(CameraSimplifier)

} // namespace NBX
