#include "reports.h"

#include "errors.h"

#include <algorithm>
#include <utility>

#include <nbx/object/stringutils.h>

namespace {

/// Reports repeat in every frame: as many different ones are enough to find what is wrong.
constexpr std::size_t s_mostMessages = 20;

Reports * s_current = nullptr;

/// Tells how the library works, not that something went wrong.
bool isRemark(const NBX::ErrorReport & report) {
    return report.condition == L"!USE_MULTI_THREADING";
}

bool isWarning(const NBX::ErrorReport & report) {
    return isRemark(report) || report.condition == L"needed <= getBudget()" ||
           report.condition == L"projection" || report.condition == L"light map" ||
           report.condition == L"texture format" || report.condition == L"texData";
}

} // namespace

Reports::Reports() : outer_(std::exchange(s_current, this)) {
    previous_ = NBX::ErrorHandler::setHandler([this](const NBX::ErrorReport & report) { note(report); });
}

Reports::~Reports() {
    NBX::ErrorHandler::setHandler(previous_);
    s_current = outer_;
}

void Reports::note(const NBX::ErrorReport & report) {
    if (isRemark(report) && !s_isVerbose) return;
    const std::string message = NBX::StringUtils::WString2Utf8String(report.message);
    const std::lock_guard lock(mutex_);
    std::vector<std::string> & messages = isWarning(report) ? warnings_ : messages_;
    const bool isKnown = std::find(messages.begin(), messages.end(), message) != messages.end();
    if (!isKnown && messages.size() < s_mostMessages) messages.push_back(message);
}

std::vector<std::string> Reports::take() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> taken = std::exchange(messages_, {});
    for (std::string & warning : std::exchange(warnings_, {}))
        taken.push_back(std::move(warning));
    return taken;
}

void Reports::throwFirst() {
    if (!s_current) return;
    std::vector<std::string> messages;
    {
        const std::lock_guard lock(s_current->mutex_);
        messages.swap(s_current->messages_);
    }
    if (!messages.empty()) throw DataError(messages.front());
}
