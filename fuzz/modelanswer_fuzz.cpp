// Any bytes as the answer of the program that reads models: no crash, no memory beyond what the bytes
// justify, and what is believed makes a scene.

#include <cstddef>
#include <cstdint>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

#include "nbx/io/modelanswer.h"
#include "nbx/io/modelscene.h"
#include "nbx/io/modeltextures.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    NBX::ModelAnswer answer;
    if (!NBX::ModelAnswer::read({data, data + size}, answer)) return 0;
    NBX::ModelTextures textures(answer, "model.obj", {});
    NBX::Model model;
    try {
        NBX::ModelScene(answer, textures).build({}, model);
    } catch (const NBX::IOError &) {
        return 0; // too many triangles
    }
    if (!model.scene) __builtin_trap();
    return 0;
}
