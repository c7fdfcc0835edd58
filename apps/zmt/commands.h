#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

/// Arguments that cannot be used; the program ends with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Data that cannot be used, or a run that was cancelled; the program ends with status 1.
class DataError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Each adds one sub-command, whose callback runs it.
void addRenderCommand(CLI::App & app);
void addLodCommand(CLI::App & app);
void addInfoCommand(CLI::App & app);
void addPickCommand(CLI::App & app);
void addBuildCommand(CLI::App & app);
void addViewCommand(CLI::App & app);

enum ExitStatus { ES_Success = 0, ES_Data = 1, ES_Usage = 2 };

/// Runs the program; the result is its exit status.
int runProgram(int argc, const char * const * argv);

/// One line on the standard error stream, whatever `message` holds.
void writeError(std::string message);
/// What to tell the user about `error`.
std::string messageOf(const std::exception & error);
