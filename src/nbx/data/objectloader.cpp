#include <nbx/data/objectloader.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <mutex>

#include <nbx/data/file.h>
#include <nbx/data/filedataresource.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

/// Our own object format.
class NativeObjectReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(NativeObjectReader, ObjectReader)
public:
    bool canProduce(const ID &) const override { return true; }
    std::string objectFileSuffix() const override { return "nbx"; }
    std::string objectFormatName() const override { return "NBX objects"; }
    SO<SharedObj> read(DataResource * resource) override;
};

SO<SharedObj> NativeObjectReader::read(DataResource * resource) {
    NBX_CHECK(resource, L"no resource");
    if (!resource) return nullptr;
    ObjectStreamReader stream(resource->pointer(), resource->size());
    const SO<SharedObj> object = stream.read();
    for (const std::string & name : stream.unknownClasses())
        NBX_FAILURE(L"objects of the unknown class " << StringUtils::Utf8String2WString(name)
                                                     << L" are left out, a plug-in may be missing: "
                                                     << resource->getObjectName());
    return object;
}

/// Readers are installed while libraries load, so the list is built on first use and never destroyed.
struct Installed {
    std::mutex mutex;
    std::vector<SO<ObjectReader>> readers;
};

Installed & installed() {
    static Installed & instance = *new Installed;
    return instance;
}

ObjectReader & nativeReader() {
    static const SO<ObjectReader> & reader = *new SO<ObjectReader>(new NativeObjectReader);
    return *reader;
}

/// Files up to this size are read at once, so that one who makes the file shorter does no harm; of larger
/// ones, readers mostly want a part only.
constexpr std::uint64_t s_largestCopy = 256 << 20;

SO<DataResource> resourceOf(const std::string & path) {
    if (!File::isFile(path)) throw FileNotFoundException(L"file not found", path);
    File file(path);
    const std::uint64_t size = file.size();
    if (size > s_largestCopy) return new FileDataResource(path, 0, false);
    const SO<DataResource> resource(new MemoryDataResource(static_cast<unsigned>(size)));
    if (file.read(resource->pointer(), size) != size) throw IOException(L"the file became shorter", path);
    resource->setObjectName(StringUtils::Utf8String2WString(path));
    return resource;
}

/// The readers to ask, in order.
std::vector<SO<ObjectReader>> candidates(const DataResource & resource, const std::string & path,
                                         const ID & className) {
    if (ObjectStreamReader::hasMagic(resource.pointer(), resource.size())) return {&nativeReader()};
    std::vector<SO<ObjectReader>> result = ObjectLoader::readers();
    std::erase_if(result, [&](const SO<ObjectReader> & reader) {
        return !className.isEmpty() && !reader->canProduce(className);
    });
    const std::string suffix = File::extensionName(path);
    const auto fits = [&](const SO<ObjectReader> & reader) { return reader->hasSuffix(suffix); };
    if (std::any_of(result.begin(), result.end(), fits)) std::erase_if(result, std::not_fn(fits));
    return result;
}

/// Null with the reason in `failure` where the reader makes nothing of it.
SO<SharedObj> readWith(ObjectReader & reader, DataResource & resource, const ID & className,
                       std::wstring & failure) {
    try {
        const SO<SharedObj> object = reader.read(&resource);
        if (!object)
            failure = L"unusable as " + StringUtils::Utf8String2WString(reader.objectFormatName());
        else if (className.isEmpty() || object->classInfoNBX()->isA(className))
            return object;
        else
            failure = L"holds another class: " +
                      StringUtils::Utf8String2WString(object->classInfoNBX()->name().text());
    } catch (const std::exception & e) {
        failure = StringUtils::Utf8String2WString(e.what());
    }
    return nullptr;
}

} // namespace

void ObjectLoader::install(SO<ObjectReader> reader) {
    NBX_CHECK(reader, L"no reader");
    if (!reader) return;
    Installed & table = installed();
    const std::lock_guard lock(table.mutex);
    const auto behind =
        std::find_if(table.readers.begin(), table.readers.end(),
                     [&](const SO<ObjectReader> & r) { return r->priority() < reader->priority(); });
    table.readers.insert(behind, reader);
}

std::vector<SO<ObjectReader>> ObjectLoader::readers() {
    Installed & table = installed();
    const std::lock_guard lock(table.mutex);
    return table.readers;
}

SO<SharedObj> ObjectLoader::readFile(const std::string & path, const ID & className, bool reportsFailure) {
    std::wstring failure;
    SO<SharedObj> object;
    try {
        const SO<DataResource> resource = resourceOf(path);
        const auto readers = candidates(*resource, path, className);
        if (readers.empty()) failure = L"no reader for this kind of file";
        for (const SO<ObjectReader> & reader : readers) {
            object = readWith(*reader, *resource, className, failure);
            if (object) return object;
        }
    } catch (const std::exception & e) {
        failure = StringUtils::Utf8String2WString(e.what());
    }
    if (reportsFailure)
        NBX_FAILURE(L"cannot load " << StringUtils::Utf8String2WString(path) << L": " << failure);
    return nullptr;
}

} // namespace NBX
