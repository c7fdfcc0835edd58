#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/io/modelfile.h>

#include "folderfiles.h"
#include "modelanswer.h"

namespace NBX {

/// Makes the textures of one model: one image for a file or an embedded picture, one texture for an image and
/// the way in which it goes on beyond its edges. Pictures that cannot be had are known with the reason.
class ModelTextures {
public:
    /// Borrows `answer`. Textures lie in the folder of the file `model` or below, or in one of `folders`.
    ModelTextures(const ModelAnswer & answer, const std::string & model,
                  const std::vector<std::string> & folders);

    /// Null where the material has none, or none that can be had.
    SO<ImageTexture2DGL> textureOf(const ModelAnswer::Material & material);
    /// All that were asked for, each once.
    const std::vector<ModelTexture> & told() const { return told_; }

private:
    SO<Image> imageOf(const ModelAnswer::Material & material);
    SO<Image> opaque(const SO<Image> & image);
    SO<Image> imageInFile(const std::string & reference, ModelTexture & told);
    SO<Image> embeddedImage(const ModelAnswer::Texture & texture, ModelTexture & told) const;
    std::string find(const std::string & reference, std::string & failure) const;

    const ModelAnswer & answer_;
    FolderFiles own_;
    std::vector<FolderFiles> others_;
    std::map<std::pair<std::string, int>, SO<Image>> images_; ///< by reference, or by number
    std::map<std::string, SO<Image>> files_;                  ///< by path
    std::map<const Image *, SO<Image>> opaque_;               ///< those without alpha, by those with it
    std::map<std::tuple<const Image *, unsigned, unsigned>, SO<ImageTexture2DGL>> textures_;
    std::vector<ModelTexture> told_;
};

} // namespace NBX
