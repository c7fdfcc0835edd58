#include <nbx/data/objectreader.h>

#include <nbx/data/objectloader.h>
#include <nbx/io/modelfile.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/node/scenething.h>

namespace NBX {

namespace {

/// Models with the axes and units of their files or their formats. What is left out is reported.
class ModelObjectReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(ModelObjectReader, ObjectReader)
public:
    bool canProduce(const ID & className) const override {
        return SceneThing::ClassInfoNBX()->isA(className);
    }
    std::string objectFileSuffix() const override {
        std::string list;
        for (const std::string & suffix : ModelFile::suffixes())
            list += (list.empty() ? "" : ";") + suffix;
        return list;
    }
    std::string objectFormatName() const override { return "Model"; }
    SO<SharedObj> read(DataResource * resource) override;
};

SO<SharedObj> ModelObjectReader::read(DataResource * resource) {
    NBX_CHECK(resource, L"no resource");
    if (!resource) return nullptr;
    const std::string path = StringUtils::WString2Utf8String(resource->getObjectName());
    // Asked for whatever nobody else knows, too.
    if (!ModelFile::recognizes(path)) return nullptr;
    const Model model = ModelFile::read(path);
    const std::wstring name = StringUtils::Utf8String2WString(path);
    for (const ModelTexture & texture : model.textures)
        if (!texture.failure.empty())
            NBX_FAILURE(name << L": texture " << StringUtils::Utf8String2WString(texture.name)
                             << L" is left out: " << StringUtils::Utf8String2WString(texture.failure));
    for (const std::string & line : model.leftOut)
        NBX_FAILURE(name << L": " << StringUtils::Utf8String2WString(line));
    return model.scene;
}

} // namespace

static const bool isInstalled = (ObjectLoader::install(new ModelObjectReader()), true);

} // namespace NBX
