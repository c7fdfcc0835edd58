#include "lighting.h"

#include "errors.h"

Lighting parseLighting(const std::string & text) {
    if (text == "relief") return Lighting::Relief;
    if (text == "vertex") return Lighting::Vertex;
    if (text == "static") return Lighting::Static;
    if (text == "dynamic") return Lighting::Dynamic;
    throw UsageError("--lighting must be relief, vertex, static or dynamic: " + text);
}
