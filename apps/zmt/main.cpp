#include "commands.h"

#include <nbx/object/progress.h>

#include "landscape/errors.h"

namespace {

/// Within half a second Ctrl-C has its effect, whatever is going on: in foreign libraries and in drivers too.
/// Nothing that is written has a name before it is complete.
constexpr double s_patience = 0.25;

} // namespace

int main(int argc, char ** argv) {
    NBX::ConsoleProgressDisplay::setPatience(s_patience, "zmt: cancelled\n", ES_Data);
    return runProgram(argc, argv);
}
