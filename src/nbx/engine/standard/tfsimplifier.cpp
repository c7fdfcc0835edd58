#include <nbx/engine/attributesimplifier.h>
#include <nbx/engine/engine.h>
#include <nbx/scene/view/tf.h>

namespace NBX {

namespace {

/// Puts transformations on the model stack.
class TfSimplifier : public AttributeSimplifier {
    NBX_TEMPLATE_CLASS(TfSimplifier, AttributeSimplifier)
public:
    ID target() const override { return Tf::ClassNameNBX(); }
    bool isSimple() const override { return true; }

    bool simplify(Engine * engine, const Attribute * attribute, bool entering) override {
        const auto * tf = dynamic_cast<const Tf *>(attribute);
        if (!tf) return false;
        if (entering)
            engine->pushModelMatrix(tf->getMatrix());
        else
            engine->popModelMatrix();
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER(TfSimplifier)

} // namespace NBX
