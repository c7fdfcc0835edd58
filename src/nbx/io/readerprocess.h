#pragma once

#include <cstdint>
#include <string>

#include "modelanswer.h"

namespace NBX {

/// Runs the program that reads models. It ends with the thread that runs it, and is ended when it takes too
/// long, writes too much, or the user cancels.
class ReaderProcess {
public:
    struct Limits {
        std::uint64_t memory; ///< bytes of the process, and of its answer; 0 for no limit of the first
        double seconds;
    };

    /// What the program says about the model at `path`, a kind of file that has the suffix `suffix`. Throws
    /// `InputException` where it says nothing, nonsense, or that it cannot read the file; `IOException` where
    /// there is no such program. From any thread.
    static ModelAnswer read(const std::string & path, const std::string & suffix, const Limits & limits);

    /// The path of the program: the one that was set, or where it lies in relation to this library. Empty
    /// where it is missing.
    static std::string program();
    /// Puts another program in its place; an empty path restores it.
    static void setProgram(const std::string & path);
};

} // namespace NBX
