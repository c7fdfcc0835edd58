// Measuring, then the table: times and counts are made to fit 8 letters by the first rule whose range holds
// them.

#include <zmt/util/profiler.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

#include <nbx/object/stringutils.h>

namespace ZMT::UTIL {

namespace {

constexpr std::int64_t s_frequencyOtherwise = 1193180;
constexpr double s_longest = 863999956800.0;
constexpr double s_minute = 60.0, s_hour = 3600.0, s_day = 86400.0;
constexpr int s_nameLetters = 20;
constexpr const char * s_rule =
    "+----------------------+----------+----------+----------+----------+----------+\n";
constexpr const char * s_columns =
    "| description          | calls    | tot.time | min time | avg time | max time |\n";

using Clock = std::chrono::steady_clock;

Profiler::Counter s_counter = {[](std::int64_t & ticks) {
                                   ticks = Clock::now().time_since_epoch().count();
                                   return true;
                               },
                               [](std::int64_t & ticksPerSecond) {
                                   ticksPerSecond = Clock::period::den / Clock::period::num;
                                   return true;
                               }};

template <class... Value> std::string formatted(const char * format, Value... values) {
    char text[40];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

/// The last one is cut to its last decimal below the next unit, for which there is no room.
std::string dividedTime(const char * format, double t, double unit, double part, double most) {
    const int units = static_cast<int>(t / unit);
    return formatted(format, units, std::min((t - units * unit) / part, most));
}

std::string wholeTime(const char * format, double t, double unit, double part) {
    const int units = static_cast<int>(t / unit);
    return formatted(format, units, static_cast<int>((t - units * unit) / part));
}

std::string smallTime(const char * format, double value) {
    constexpr double most = 999.99;
    return formatted(format, std::min(value, most));
}

std::string timeText(double t) {
    if (t > s_longest) return ">=10^6d";
    if (t >= 8.64e7) return formatted("% 7dd", static_cast<int>(t / s_day));
    if (t >= 864000.0) return wholeTime("%3dd %2dh", t, s_day, s_hour);
    if (t >= 360000.0) return dividedTime("%1dd %4.1fh", t, s_day, s_hour, 23.9);
    if (t >= 36000.0) return wholeTime("%3dh %2dm", t, s_hour, s_minute);
    if (t >= 6000.0) return dividedTime("%1dh %4.1fm", t, s_hour, s_minute, 59.9);
    if (t >= 600.0) return wholeTime("%3dm %2ds", t, s_minute, 1.0);
    if (t >= 1.0) return formatted("%7.3fs", t);
    if (t >= 0.001) return smallTime("%6.2fms", t * 1000);
    if (t >= 1e-6) return smallTime("%6.2fus", t * 1e6);
    return smallTime("%6.2fns", t * 1e9);
}

std::string countText(std::int64_t n) {
    const auto count = static_cast<double>(n);
    if (n >= 10000000000) return formatted("%6.2f G", count * 1e-9);
    if (n >= 10000000) return formatted("%6.2f M", count * 1e-6);
    if (n < 10000) return formatted("%6d  ", static_cast<int>(n));
    return formatted("%6.2f k", count * 0.001);
}

/// The same letters in each column, however many bytes they take.
std::string nameText(const wchar_t * name) {
    const std::wstring wide = name ? name : L"";
    const std::string text = NBX::StringUtils::WString2Utf8String(wide);
    return text + std::string(std::max<std::size_t>(s_nameLetters, wide.size()) - wide.size(), ' ');
}

void writeHeading(long long minCalls, double minTotalTime) {
    if (minCalls < 1 && !(minTotalTime > 0.0)) {
        std::fputs("Profiler statistics\n", stderr);
        return;
    }
    std::fputs("Profiler statistics for all IDs with at least ", stderr);
    if (minTotalTime > 0.0) std::fprintf(stderr, "%g seconds total runtime ", minTotalTime);
    if (minTotalTime > 0.0 && minCalls >= 1) std::fputs("and at least ", stderr);
    if (minCalls >= 1) std::fprintf(stderr, "%lld calls", minCalls);
    std::fputs("\n", stderr);
}

double meanOf(const ProfilerData & data) {
    return data.totalTime / static_cast<double>(data.calls);
}

} // namespace

/// A row that knows its place.
struct Profiler::Item : ProfilerData {
    std::uint64_t number = 0;
};

bool Profiler::OlderFirst::operator()(const ProfilerData * a, const ProfilerData * b) const {
    return static_cast<const Item *>(a)->number < static_cast<const Item *>(b)->number;
}

Profiler & Profiler::instance() {
    // Never destroyed: what is measured may run at the end of the process.
    static Profiler & instance = *new Profiler;
    return instance;
}

Profiler::~Profiler() {
    for (const auto & [data, isOwned] : ids_)
        if (isOwned) delete static_cast<Item *>(data);
}

ProfilerData * Profiler::newId(const wchar_t * name) {
    auto * item = new Item;
    item->name = name;
    item->number = ids_.size();
    return ids_.emplace(item, true).first->first;
}

void Profiler::start(ProfilerData * data) {
    if (!data) return;
    if (!s_counter.ticks(data->startTicks)) data->startTicks = -1;
    data->startEvent = ++events_;
}

void Profiler::stop(ProfilerData * data) {
    std::int64_t now = -1, frequency = 0;
    const bool isRead = s_counter.ticks(now);
    if (!s_counter.frequency(frequency)) frequency = s_frequencyOtherwise;
    if (!data || data->startTicks == -1) return;
    if (isRead && now > data->startTicks && events_ >= data->startEvent) {
        const double overhead =
            static_cast<double>(events_ - data->startEvent) * outerOverhead_ + innerOverhead_;
        const double elapsed =
            static_cast<double>(now - data->startTicks) / static_cast<double>(frequency) - overhead;
        ++data->calls;
        data->totalTime += elapsed;
        data->minTime = std::min(data->minTime, elapsed);
        data->maxTime = std::max(data->maxTime, elapsed);
    }
    data->startTicks = -1;
}

void Profiler::measureOverhead(int rounds, int loops) {
    ProfilerData outer{L"outer overhead"}, inner{L"inner overhead"};
    double leastOuter = outer.minTime, leastInner = inner.minTime;
    innerOverhead_ = outerOverhead_ = 0.0;
    for (int round = 0; round < rounds; ++round) {
        outer.reset();
        inner.reset();
        for (int loop = 0; loop < loops; ++loop) {
            start(&outer);
            start(&inner);
            stop(&inner);
            stop(&outer);
        }
        if (outer.calls == 0 || inner.calls == 0) return;
        leastOuter = std::min(leastOuter, meanOf(outer));
        leastInner = std::min(leastInner, meanOf(inner));
    }
    if (rounds < 1) return;
    innerOverhead_ = leastInner;
    outerOverhead_ = leastOuter - leastInner;
}

void Profiler::dump(const ProfilerData * data) {
    if (!data) return;
    const auto ofCalls = [data](double t) { return data->calls > 0 ? timeText(t) : "N/A"; };
    std::fprintf(stderr, "| %-20s | %8s | %8s | %8s | %8s | %8s |\n", nameText(data->name).c_str(),
                 countText(data->calls).c_str(), timeText(data->totalTime).c_str(),
                 ofCalls(data->minTime).c_str(), ofCalls(meanOf(*data)).c_str(),
                 ofCalls(data->maxTime).c_str());
}

void Profiler::dumpAll(long long minCalls, double minTotalTime) {
    ProfilerData own{L"profiler"};
    own.totalTime = outerOverhead_ * static_cast<double>(events_);
    own.calls = events_;
    own.minTime = own.maxTime = outerOverhead_;
    const auto dumpChosen = [&](const ProfilerData & data) {
        if (data.totalTime >= minTotalTime && data.calls >= minCalls) dump(&data);
    };
    writeHeading(minCalls, minTotalTime);
    std::fputs(s_rule, stderr);
    std::fputs(s_columns, stderr);
    std::fputs(s_rule, stderr);
    dumpChosen(own);
    for (const auto & id : ids_)
        dumpChosen(*id.first);
    std::fputs(s_rule, stderr);
}

void Profiler::reset() {
    for (const auto & id : ids_)
        id.first->reset();
    events_ = 0;
}

Profiler::Counter Profiler::setCounter(Counter counter) {
    return std::exchange(s_counter, counter);
}

} // namespace ZMT::UTIL
