#pragma once

#include <vector>

#include <nbx/engine/clock.h>

/// A clock whose time goes on only when it is told to, or sleeps.
class SteppedClock : public NBX::Clock {
    NBX_TEMPLATE_CLASS(SteppedClock, NBX::Clock)
public:
    NBX::NBXTime now() const override { return time; }

    double time = 100.0;
    std::vector<double> sleeps; ///< how long each was

protected:
    void sleepUntil(const NBX::NBXTime & until) override {
        sleeps.push_back(until - time);
        time = until;
    }
};
