#include <nbx/data/objectsaver.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include <nbx/data/binaryobjectwriter.h>
#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

namespace NBX {

namespace {

/// Writers are installed while libraries load, so the list is built on first use and never destroyed.
struct InstalledWriters {
    std::mutex mutex;
    std::vector<SO<ObjectWriter>> writers;
};

InstalledWriters & installedWriters() {
    static InstalledWriters & instance = *new InstalledWriters;
    return instance;
}

SO<ObjectWriter> writerFor(const SharedObj * object, const std::string & path) {
    InstalledWriters & table = installedWriters();
    const std::lock_guard lock(table.mutex);
    const std::string suffix = File::extensionName(path);
    const auto found =
        std::find_if(table.writers.begin(), table.writers.end(),
                     [&](const SO<ObjectWriter> & w) { return w->hasSuffix(suffix) && w->canWrite(object); });
    return found == table.writers.end() ? nullptr : *found;
}

} // namespace

void ObjectSaver::install(SO<ObjectWriter> writer) {
    NBX_CHECK(writer, L"no writer");
    if (!writer) return;
    InstalledWriters & table = installedWriters();
    const std::lock_guard lock(table.mutex);
    const auto behind =
        std::find_if(table.writers.begin(), table.writers.end(),
                     [&](const SO<ObjectWriter> & w) { return w->priority() < writer->priority(); });
    table.writers.insert(behind, writer);
}

bool ObjectSaver::write(const SharedObj * object, const std::string & path) {
    NBX_CHECK(object, L"no object");
    if (!object) return false;
    if (const SO<ObjectWriter> writer = writerFor(object, path)) {
        writer->write(object, path);
        return true;
    }
    SO<ObjectWriter>(new BinaryObjectWriter)->write(object, path);
    return true;
}

} // namespace NBX
