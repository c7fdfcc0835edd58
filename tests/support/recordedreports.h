#pragma once

#include <algorithm>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

/// Takes the reports of the process while it lives, and gives the handler before it back at its end.
/// A test that expects none says `EXPECT_TRUE(reports.empty()) << reports;`.
class RecordedReports {
public:
    RecordedReports() {
        before_ = NBX::ErrorHandler::setHandler([this](const NBX::ErrorReport & report) {
            const std::lock_guard<std::mutex> lock(mutex_);
            reports_.push_back(report);
        });
    }
    ~RecordedReports() { NBX::ErrorHandler::setHandler(before_); }
    RecordedReports(const RecordedReports &) = delete;
    RecordedReports & operator=(const RecordedReports &) = delete;

    /// A copy, so that other threads may go on reporting.
    std::vector<NBX::ErrorReport> reports() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return reports_;
    }
    std::size_t size() const { return reports().size(); }
    bool empty() const { return reports().empty(); }
    NBX::ErrorReport operator[](std::size_t i) const { return reports().at(i); }
    /// The latest report; level -1 when there is none.
    NBX::ErrorReport last() const {
        const std::vector<NBX::ErrorReport> all = reports();
        return all.empty() ? NBX::ErrorReport{-1, L"", L"", "", 0} : all.back();
    }
    void clear() {
        const std::lock_guard<std::mutex> lock(mutex_);
        reports_.clear();
    }

    /// Number of reports with exactly this level, condition text and message.
    std::size_t count(int level, const std::wstring & condition, const std::wstring & message) const {
        const std::vector<NBX::ErrorReport> all = reports();
        return std::count_if(all.begin(), all.end(), [&](const NBX::ErrorReport & r) {
            return r.level == level && r.condition == condition && r.message == message;
        });
    }
    /// Number of reports with exactly this message.
    std::size_t count(const std::wstring & message) const {
        const std::vector<NBX::ErrorReport> all = reports();
        return std::count_if(all.begin(), all.end(),
                             [&](const NBX::ErrorReport & r) { return r.message == message; });
    }

    friend std::ostream & operator<<(std::ostream & stream, const RecordedReports & recorded) {
        for (const NBX::ErrorReport & report : recorded.reports())
            stream << "level " << report.level << ", ["
                   << NBX::StringUtils::WString2Utf8String(report.condition)
                   << "]: " << NBX::StringUtils::WString2Utf8String(report.message) << "\n";
        return stream;
    }

private:
    mutable std::mutex mutex_;
    std::vector<NBX::ErrorReport> reports_;
    NBX::ErrorHandler::Handler before_;
};
