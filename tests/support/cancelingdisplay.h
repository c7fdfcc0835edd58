#pragma once

#include <nbx/object/progress.h>

/// Cancels every long operation of its life at once.
class CancelingDisplay : public NBX::ProgressDisplay {
public:
    CancelingDisplay() : before_(NBX::Progress::setDisplay(this)) {}
    CancelingDisplay(const CancelingDisplay &) = delete;
    CancelingDisplay & operator=(const CancelingDisplay &) = delete;
    ~CancelingDisplay() override { NBX::Progress::setDisplay(before_); }

    void begin(const NBX::Progress &) override {}
    bool update(const NBX::Progress &) override { return false; }
    void end(const NBX::Progress &) override {}

private:
    NBX::ProgressDisplay * before_;
};
