// A program gives its attributes places when it is linked, so the names are looked up when the shape is
// drawn: few, and in main memory. That all indices have a vertex is known from the largest one, without going
// through millions of them or reading back from the card.

#include <nbx/gl/program/attributedshape.h>

#include <algorithm>

#include <GL/glew.h>

#include "nbx/gl/mesh/vertexstateguardgl.h"
#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(AttributedShape, Shape)

AttributedShape::AttributedShape(PrimitiveType type, const Bounds & box)
    : Shape(true), type_(type), box_(box) {}

void AttributedShape::setAttribute(const std::string & name, SO<BaseVertexAttributeBufferObjectGL> buffer) {
    std::erase_if(attributes_, [&](const Attribute & a) { return a.name == name; });
    if (buffer) attributes_.push_back({name, buffer});
    modified();
}

SO<BaseVertexAttributeBufferObjectGL> AttributedShape::attribute(const std::string & name) const {
    for (const Attribute & a : attributes_)
        if (a.name == name) return a.buffer;
    return nullptr;
}

void AttributedShape::setIndices(EngineGL * engine, const std::vector<std::uint32_t> & indices) {
    NBX_CHECK(engine, L"no engine");
    indices_ = nullptr;
    indexCount_ = 0;
    if (engine && !indices.empty()) {
        indices_ = new BufferObjectGL(engine, indices.size() * sizeof(std::uint32_t), indices.data(),
                                      BufferObjectGL::DT_VertexIndices, BufferObjectGL::UP_Static);
        indexCount_ = unsigned(indices.size());
        largestIndex_ = *std::max_element(indices.begin(), indices.end());
    }
    modified();
}

unsigned AttributedShape::vertexCount() const {
    if (attributes_.empty()) return 0;
    unsigned count = attributes_.front().buffer->count();
    for (const Attribute & a : attributes_)
        count = std::min(count, a.buffer->count());
    return count;
}

void AttributedShape::setBoundingBox(const Bounds & box) {
    box_ = box;
    modified();
}

/// What is wrong with drawing under `program`; null for nothing.
const wchar_t * AttributedShape::fault(unsigned program) const {
    if (program == 0) return L"named vertex attributes need a program";
    if (indices_ && (!indices_->name() || largestIndex_ >= vertexCount()))
        return L"an index lies beyond the vertices";
    for (const Attribute & a : attributes_)
        if (a.buffer->dataType() != BufferObjectGL::DT_VertexAttributes)
            return L"the buffer of a vertex attribute holds other data";
    return nullptr;
}

void AttributedShape::bindAttributes(EngineGL * engine, unsigned program) const {
    for (const Attribute & a : attributes_) {
        const GLint location = glGetAttribLocationARB(program, a.name.c_str());
        if (location < 0) continue;
        a.buffer->bind(engine);
        glVertexAttribPointerARB(GLuint(location), GLint(a.buffer->components()), a.buffer->componentType(),
                                 GL_FALSE, 0, a.buffer->boundAddress(0));
        glEnableVertexAttribArrayARB(GLuint(location));
    }
}

void AttributedShape::draw(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    const unsigned count = vertexCount();
    if (!engine || count == 0) return;
    const GLhandleARB program = glGetHandleARB(GL_PROGRAM_OBJECT_ARB);
    if (const wchar_t * message = fault(program)) {
        NBX_CHECK(faultTold_, message);
        faultTold_ = true;
        return;
    }
    const VertexStateGuard guard;
    bindAttributes(engine, program);
    if (indices_) {
        indices_->bind(engine);
        glDrawRangeElements(GLenum(type_), 0, largestIndex_, GLsizei(indexCount_), GL_UNSIGNED_INT,
                            indices_->boundAddress(0));
    } else {
        glDrawArrays(GLenum(type_), 0, GLsizei(count));
    }
}

namespace {

class AttributedShapePainter : public ShapePainter {
public:
    ID target() const override { return AttributedShape::ClassNameNBX(); }
    bool render(Engine * engine, const Shape * shape) override {
        const auto * attributed = dynamic_cast<const AttributedShape *>(shape);
        if (!attributed) return false;
        attributed->draw(dynamic_cast<EngineGL *>(engine));
        return true;
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(AttributedShapePainter)

} // namespace NBX::GL2
