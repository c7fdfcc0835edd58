// Which readers are asked for a stored object: our own where the bytes say so, else all that make its class
// and fetch from where it lies, by priority; where some of them know its suffix, these alone. The first that
// makes an object of the class is taken, and each gets the bytes on demand.

#include <nbx/data/objectloader.h>

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>

#include <nbx/data/locator.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

#include "lazyfileresource.h"
#include "objectstreamformat.h"

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
struct InstalledReaders {
    std::mutex mutex;
    std::vector<SO<ObjectReader>> readers;
};

InstalledReaders & installedReaders() {
    static InstalledReaders & instance = *new InstalledReaders;
    return instance;
}

ObjectReader & nativeReader() {
    static const SO<ObjectReader> & reader = *new SO<ObjectReader>(new NativeObjectReader);
    return *reader;
}

/// What a reader is given: the bytes of a file on demand, or for what lies elsewhere the name alone.
SO<DataResource> resourceOf(const Locator & locator) {
    if (locator.isFile()) return new LazyFileResource(locator.text());
    SO<DataResource> resource(new MemoryDataResource(0, false));
    resource->setObjectName(StringUtils::Utf8String2WString(locator.text()));
    return resource;
}

bool isNative(const DataResource & resource) {
    std::array<char, sizeof s_streamMagic> start;
    return ObjectStreamReader::hasMagic(start.data(), resource.read(0, start.data(), start.size()));
}

/// The readers to ask, in order.
std::vector<SO<ObjectReader>> candidates(const DataResource & resource, const Locator & locator,
                                         const ID & className) {
    if (isNative(resource)) return {&nativeReader()};
    std::vector<SO<ObjectReader>> result = ObjectLoader::readers();
    std::erase_if(result, [&](const SO<ObjectReader> & reader) {
        return (!className.isEmpty() && !reader->canProduce(className)) ||
               (!locator.isFile() && !reader->readsFrom(locator.scheme()));
    });
    const std::string suffix = locator.suffix();
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
    InstalledReaders & table = installedReaders();
    const std::lock_guard lock(table.mutex);
    const auto behind =
        std::find_if(table.readers.begin(), table.readers.end(),
                     [&](const SO<ObjectReader> & r) { return r->priority() < reader->priority(); });
    table.readers.insert(behind, reader);
}

std::vector<SO<ObjectReader>> ObjectLoader::readers() {
    InstalledReaders & table = installedReaders();
    const std::lock_guard lock(table.mutex);
    return table.readers;
}

SO<SharedObj> ObjectLoader::readFile(const std::string & text, const ID & className, bool reportsFailure) {
    std::wstring failure;
    SO<SharedObj> object;
    try {
        const Locator locator(text);
        const SO<DataResource> resource = resourceOf(locator);
        const auto readers = candidates(*resource, locator, className);
        if (readers.empty())
            failure = locator.isFile()
                          ? L"no reader for this kind of file"
                          : L"no reader fetches such objects from a server; use a copy in a file";
        for (const SO<ObjectReader> & reader : readers) {
            object = readWith(*reader, *resource, className, failure);
            if (object) return object;
        }
    } catch (const std::exception & e) {
        failure = StringUtils::Utf8String2WString(e.what());
    }
    if (reportsFailure)
        NBX_FAILURE(L"cannot load " << StringUtils::Utf8String2WString(Locator::shownIn(text)) << L": "
                                    << failure);
    return nullptr;
}

ID ObjectLoader::classOf(const std::string & path) {
    try {
        return ObjectStreamReader::rootClass(LazyFileResource(path));
    } catch (const IOException &) {
        return {};
    }
}

} // namespace NBX
