#pragma once

#include <nbx/io/modelfile.h>

namespace CLI {
class App;
}

/// Adds `--up` and `--units`: how the shapes of models are read.
void addModelAxisOptions(CLI::App & command, NBX::ModelOptions & options);
/// Adds these and `--textures`.
void addModelOptions(CLI::App & command, NBX::ModelOptions & options);
