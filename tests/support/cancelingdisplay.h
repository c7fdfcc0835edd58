#pragma once

#include <string>
#include <vector>

#include <nbx/object/progress.h>

/// Cancels the long operations of its life at once, from the one numbered `first` on, and notes what all of
/// them are called.
class CancelingDisplay : public NBX::ProgressDisplay {
public:
    explicit CancelingDisplay(std::size_t first = 0)
        : first_(first), before_(NBX::Progress::setDisplay(this)) {}
    CancelingDisplay(const CancelingDisplay &) = delete;
    CancelingDisplay & operator=(const CancelingDisplay &) = delete;
    ~CancelingDisplay() override { NBX::Progress::setDisplay(before_); }

    void begin(const NBX::Progress & progress) override {
        titles.push_back(progress.title());
        totals.push_back(progress.totalValue());
    }
    bool update(const NBX::Progress &) override { return titles.size() <= first_; }
    void end(const NBX::Progress &) override {}

    std::vector<std::string> titles;
    std::vector<double> totals;

private:
    std::size_t first_;
    NBX::ProgressDisplay * before_;
};
