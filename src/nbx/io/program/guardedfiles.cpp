#include "guardedfiles.h"

#include <assimp/MemoryIOWrapper.h>

namespace NBX {

namespace {

/// With a '/' at its end.
std::string folderOf(const std::string & path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

} // namespace

GuardedFiles::GuardedFiles(const std::string & model)
    : model_(model), folder_(folderOf(model)), files_(folder_) {}

/// The library puts the model's folder in front of most names, but not of all.
FolderFiles::Found GuardedFiles::find(const std::string & file) const {
    if (file == model_) return {file, ""};
    const bool isBelow = file.compare(0, folder_.size(), folder_) == 0;
    return files_.find(isBelow ? file.substr(folder_.size()) : file);
}

bool GuardedFiles::Exists(const char * file) const {
    return !find(file).path.empty();
}

Assimp::IOStream * GuardedFiles::Open(const char * file, const char * mode) {
    const std::string name(file);
    const FolderFiles::Found found = find(name);
    const bool isReading = mode && mode[0] == 'r' && std::string(mode).find('+') == std::string::npos;
    if (isReading && text_ && name == model_)
        return new Assimp::MemoryIOStream(reinterpret_cast<const std::uint8_t *>(text_->data()),
                                          text_->size());
    if (isReading && !found.path.empty()) return DefaultIOSystem::Open(found.path.c_str(), mode);
    if (isReading)
        notOpened_.insert("file " + FolderFiles::lastName(name) + " is left out: " +
                          (found.refusal.empty() ? "it is not in the model's folder" : found.refusal));
    return nullptr;
}

} // namespace NBX
