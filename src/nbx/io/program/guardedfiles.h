#pragma once

#include <set>
#include <string>
#include <vector>

#include <assimp/DefaultIOSystem.h>

#include "../folderfiles.h"

namespace NBX {

/// What the library of readers may open: the model itself, and for reading what lies in its folder or below.
class GuardedFiles : public Assimp::DefaultIOSystem {
public:
    explicit GuardedFiles(const std::string & model);

    bool Exists(const char * file) const override;
    Assimp::IOStream * Open(const char * file, const char * mode) override;

    /// The model's own text in the place of its file; borrowed.
    void setModelText(const std::string * text) { text_ = text; }

    /// Files that the model named and that were not opened, each as a sentence.
    std::vector<std::string> notOpened() const { return {notOpened_.begin(), notOpened_.end()}; }

private:
    FolderFiles::Found find(const std::string & file) const;

    std::string model_, folder_;
    FolderFiles files_;
    const std::string * text_ = nullptr; ///< or null
    std::set<std::string> notOpened_;
};

} // namespace NBX
