#include "outputfiles.h"

#include "errors.h"
#include "streamedfiles.h"

#include <algorithm>
#include <cstddef>

#include <sys/stat.h>

#include <nbx/data/atomicfilewriter.h>
#include <zmt/raster/gdal/rasterfile.h>

namespace {

/// A file whatever its name.
class FileIdentity {
public:
    explicit FileIdentity(const std::string & path) : goal_(NBX::AtomicFileWriter::goal(path)) {
        exists_ = ::stat(path.c_str(), &status_) == 0;
    }

    bool operator==(const FileIdentity & other) const {
        const bool isSameNode = exists_ && other.exists_ && status_.st_dev == other.status_.st_dev &&
                                status_.st_ino == other.status_.st_ino;
        return isSameNode || goal_ == other.goal_;
    }

private:
    std::string goal_;
    struct stat status_ {};
    bool exists_ = false;
};

void refuseSame(const NamedFile & output, const NamedFile & other) {
    if (output.path.empty() || other.path.empty() || !(FileIdentity(output.path) == FileIdentity(other.path)))
        return;
    const std::string names = output.path == other.path ? output.path : output.path + " is " + other.path;
    throw UsageError(output.option + " and " + other.option +
                     " are the same file, which would be overwritten: " + names);
}

/// What lies on a web server is no file that could be lost, and to look for its parts would fetch it.
std::vector<NamedFile> withoutUrls(std::vector<NamedFile> files) {
    const auto isRemote = [](const NamedFile & file) { return isUrl(file.path); };
    files.erase(std::remove_if(files.begin(), files.end(), isRemote), files.end());
    return files;
}

/// What is read for the inputs besides the files that are named.
std::vector<NamedFile> partsOf(const std::vector<NamedFile> & inputs) {
    std::vector<NamedFile> parts;
    for (const NamedFile & input : inputs)
        for (const std::string & path : ZMT::RASTER::RasterFile::partsOf(input.path))
            parts.push_back({"a part of " + input.option, path});
    return parts;
}

} // namespace

void checkOutputs(const std::vector<NamedFile> & named, const std::vector<NamedFile> & outputs) {
    const std::vector<NamedFile> inputs = withoutUrls(named);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        for (const NamedFile & input : inputs)
            refuseSame(outputs[i], input);
        for (std::size_t j = 0; j < i; ++j)
            refuseSame(outputs[i], outputs[j]);
    }
    for (const NamedFile & part : partsOf(inputs))
        for (const NamedFile & output : outputs)
            refuseSame(output, part);
}
