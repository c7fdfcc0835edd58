#pragma once

#include <nbx/io/modelfile.h>

namespace CLI {
class App;
}

/// Adds `--up`, `--units` and `--textures`: how models are read.
void addModelOptions(CLI::App & command, NBX::ModelOptions & options);
