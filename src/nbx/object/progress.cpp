// The display is asked at most every tenth of a second, since most updates come more often. An interrupt is a
// flag that the next update finds; a timer ends a process that looks at it too late.

#include <nbx/object/progress.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include <nbx/object/nbxtime.h>

namespace NBX {

namespace {

ProgressDisplay * s_display = nullptr;
constexpr double s_displayInterval = 0.1;

volatile std::sig_atomic_t s_interrupted = 0;

/// How a process ends that is still there when the patience is over: of what signal handlers may use.
struct Farewell {
    timer_t timer{};
    itimerspec patience{}; ///< 0 for endless
    char text[200] = {};
    std::size_t size = 0;
    int status = 1;
};

Farewell s_farewell;
volatile std::sig_atomic_t s_saysFarewell = 0;

void endProcess(int) {
    if (s_saysFarewell) (void)!::write(STDERR_FILENO, s_farewell.text, s_farewell.size);
    ::_exit(s_farewell.status);
}

bool isEndless(const itimerspec & patience) {
    return patience.it_value.tv_sec == 0 && patience.it_value.tv_nsec == 0;
}

void noteInterrupt(int) {
    s_interrupted = 1;
    if (!isEndless(s_farewell.patience)) ::timer_settime(s_farewell.timer, 0, &s_farewell.patience, nullptr);
    // A second one does not wait for a step that does not look.
    std::signal(SIGINT, SIG_DFL);
}

std::string minutesAndSeconds(double seconds) {
    char text[32];
    const auto whole = static_cast<long>(std::min(seconds, 359999.0) + 0.5);
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

unsigned terminalColumns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace

Progress::Progress(const std::string & title, double total, bool cancelable, bool showsTimeLeft,
                   const std::string & text)
    : title_(title), text_(text), total_(total), started_(NBXTime::now()), cancelable_(cancelable),
      showsTimeLeft_(showsTimeLeft), display_(s_display) {
    if (display_) display_->begin(*this);
}

Progress::~Progress() {
    if (display_) display_->end(*this);
}

bool Progress::update(double value, const std::string & text, const std::string & detail) {
    value_ = value;
    if (!text.empty()) text_ = text;
    if (!detail.empty()) detail_ = detail;
    if (!display_ || canceled_) return !canceled_;

    const double now = NBXTime::now();
    if (shown_ >= 0.0 && now - shown_ < s_displayInterval) return true;
    shown_ = now;
    const bool goOn = display_->update(*this);
    canceled_ = cancelable_ && !goOn;
    return !canceled_;
}

void Progress::finish() {
    value_ = total_;
    finished_ = true;
    if (display_) display_->update(*this);
}

double Progress::elapsed() const {
    return NBXTime::now() - started_;
}

double Progress::timeLeft() const {
    const double done = total_ > 0.0 ? value_ / total_ : 0.0;
    return done > 0.0 ? elapsed() * (1.0 - done) / done : -1.0;
}

ProgressDisplay * Progress::setDisplay(ProgressDisplay * display) {
    return std::exchange(s_display, display);
}

ConsoleProgressDisplay::ConsoleProgressDisplay() : isTerminal_(isatty(STDERR_FILENO) == 1) {
    s_interrupted = 0;
    s_saysFarewell = 1;
    std::signal(SIGINT, noteInterrupt);
}

ConsoleProgressDisplay::~ConsoleProgressDisplay() {
    std::signal(SIGINT, SIG_DFL);
    s_saysFarewell = 0;
}

void ConsoleProgressDisplay::begin(const Progress &) {}

bool ConsoleProgressDisplay::update(const Progress & progress) {
    if (isTerminal_) std::fprintf(stderr, "\r%s", line(progress, terminalColumns() - 1).c_str());
    return !interrupted();
}

void ConsoleProgressDisplay::end(const Progress &) {
    if (isTerminal_) std::fprintf(stderr, "\n");
}

bool ConsoleProgressDisplay::interrupted() {
    return s_interrupted != 0;
}

void ConsoleProgressDisplay::setPatience(double seconds, const std::string & farewell, int status) {
    static const bool hasTimer = [] {
        sigevent event{};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGALRM;
        return ::timer_create(CLOCK_MONOTONIC, &event, &s_farewell.timer) == 0;
    }();
    if (!hasTimer) return;
    std::signal(SIGALRM, endProcess);
    s_farewell.size = std::min(farewell.size(), sizeof s_farewell.text);
    farewell.copy(s_farewell.text, s_farewell.size);
    s_farewell.status = status;
    const auto whole = static_cast<time_t>(seconds);
    s_farewell.patience.it_value = {whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)};
}

std::string ConsoleProgressDisplay::line(const Progress & progress, unsigned width) {
    const double done = progress.totalValue() > 0.0
                            ? std::clamp(progress.currentValue() / progress.totalValue(), 0.0, 1.0)
                            : 0.0;
    char percent[16];
    std::snprintf(percent, sizeof percent, " %3d %%", static_cast<int>(done * 100.0));
    std::string behind = percent;
    if (progress.isFinished())
        behind += "  " + minutesAndSeconds(progress.elapsed());
    else if (progress.showsTimeLeft() && progress.timeLeft() >= 0.0)
        behind += "  " + minutesAndSeconds(progress.timeLeft()) + " left";

    const std::string before =
        progress.title() + (progress.text().empty() ? "" : ": " + progress.text()) + " ";
    const std::size_t taken = before.size() + behind.size() + 2;
    std::string result = before;
    if (taken + 4 <= width) {
        const std::size_t bar = std::min<std::size_t>(width - taken, 40);
        const auto filled = static_cast<std::size_t>(done * static_cast<double>(bar));
        result += "[" + std::string(filled, '#') + std::string(bar - filled, '.') + "]";
    }
    result += behind;
    result.resize(width, ' ');
    return result;
}

} // namespace NBX
