#pragma once

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

/// A folder of its own, removed at the end. Inputs go to `in`, the program's results to `out`.
class RunFolder {
public:
    RunFolder();
    ~RunFolder();
    RunFolder(const RunFolder &) = delete;
    RunFolder & operator=(const RunFolder &) = delete;

    std::string in(const std::string & name) const { return (path_ / "in" / name).string(); }
    std::string out(const std::string & name) const { return (path_ / "out" / name).string(); }
    /// Writes an input file; the result is its path.
    std::string write(const std::string & name, const std::string & bytes) const;

    /// The names in the folder of the results.
    std::vector<std::string> results() const;
    /// The names in the folder of the inputs.
    std::vector<std::string> inputs() const;
    const std::filesystem::path & path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// What became of a run of a program.
struct RunResult {
    int status = -1; ///< exit status, or 1000 + the signal that ended it
    std::string output;
    std::string errors;
    double secondsAfterSignal = 0.0; ///< from the signal, where there was one, to the end

    /// The lines of `errors` that begin with the program's name.
    std::vector<std::string> errorLines() const;
};

struct RunLimits {
    unsigned long largestFile = 0; ///< in bytes, like a disk that fills; 0: no limit
    /// When the program opens a file in this folder, it gets the signal.
    std::filesystem::path interruptWhenIn = {};
    int signal = SIGINT;
    std::chrono::milliseconds signalDelay{0}; ///< so long after it has opened the file
};

/// Runs `program` to its end, at most two minutes.
RunResult runProcess(const std::string & program, const std::vector<std::string> & arguments,
                     const RunFolder & folder, const RunLimits & limits = {});

std::string readWhole(const std::string & path);
