#pragma once

#include <string>

#include <nbx/object/progress.h>

#include "errors.h"

/// One step of a long run, shown while it lives. Steps whose parts cannot be cancelled end at the next one.
class Step {
public:
    /// Throws `DataError` when the user wishes to cancel.
    explicit Step(const std::string & title, double total = 1.0) : progress_(title, total) { goOn(0.0); }

    /// Throws as above.
    void goOn(double value) {
        if (!progress_.update(value)) throw DataError("cancelled");
    }
    void finish() { progress_.finish(); }

private:
    NBX::Progress progress_;
};
