#include "clocktimer.h"

#include <algorithm>
#include <cmath>

#include <QCoreApplication>

#include <nbx/engine/clock.h>

namespace {

/// Milliseconds after which the clock is asked again in any case.
constexpr double s_longestWait = 3'600'000.0;

} // namespace

void ClockTimer::start() {
    QCoreApplication * application = QCoreApplication::instance();
    if (!application->findChild<ClockTimer *>()) new ClockTimer(application);
}

ClockTimer::ClockTimer(QObject * parent) : QObject(parent) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &ClockTimer::serve);
    NBX::Clock::systemClock()->setAlarm([this] { set(); });
    set();
}

ClockTimer::~ClockTimer() {
    NBX::Clock::systemClock()->setAlarm({});
}

void ClockTimer::serve() {
    NBX::Clock::systemClock()->serve();
    set();
}

/// The timer stands still while nothing is awaited.
void ClockTimer::set() {
    const NBX::Clock * clock = NBX::Clock::systemClock();
    const NBX::NBXTime next = clock->nextTick();
    if (next == NBX::Clock::never()) return timer_.stop();
    const double wait = (next - clock->now()) * 1000.0;
    timer_.start(int(std::clamp(std::ceil(wait), 0.0, s_longestWait)));
}
