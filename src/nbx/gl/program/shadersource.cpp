#include <nbx/gl/program/shadersource.h>

#include <nbx/data/objectloader.h>
#include <nbx/data/objectreader.h>
#include <nbx/object/stringutils.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(ShaderSource, SharedObj)

namespace {

class ShaderSourceReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(ShaderSourceReader, ObjectReader)
public:
    bool canProduce(const ID & className) const override {
        return ShaderSource::ClassInfoNBX()->isA(className);
    }
    std::string objectFileSuffix() const override { return "glsl"; }
    std::string objectFormatName() const override { return "OpenGL shader"; }
    SO<SharedObj> read(DataResource * resource) override {
        const std::string name = StringUtils::WString2Utf8String(resource->getObjectName());
        if (!hasSuffix(name.substr(name.rfind('.') + 1)) || resource->size() > ShaderSource::s_maxBytes)
            return nullptr;
        std::string text(resource->size(), '\0');
        text.resize(resource->read(0, text.data(), resource->size()));
        // A zero would end the text for the compiler.
        return text.find('\0') == std::string::npos ? SO<SharedObj>(new ShaderSource(text)) : nullptr;
    }
};

[[maybe_unused]] const bool isInstalled = (ObjectLoader::install(new ShaderSourceReader), true);

} // namespace

} // namespace NBX::GL2
