#pragma once

namespace CLI {
class App;
}

// Each adds one sub-command, whose callback runs it.
void addRenderCommand(CLI::App & app);
void addLodCommand(CLI::App & app);
void addMeshCommand(CLI::App & app);
void addInfoCommand(CLI::App & app);
void addPickCommand(CLI::App & app);
void addBuildCommand(CLI::App & app);
/// To those of the command above: what streams, and cities.
void addStreamingBuildCommands(CLI::App & app);
void addCityBuildCommand(CLI::App & app);
void addReliefCommand(CLI::App & app);
/// To those of the command above.
void addHachureCommand(CLI::App & app);
void addReliefLightCommands(CLI::App & app);
void addViewCommand(CLI::App & app);
void addValidateCommand(CLI::App & app);

/// Runs the program; the result is its exit status.
int runProgram(int argc, const char * const * argv);
