// Days since 1970 are counted in the way of H. Hinnant, "chrono-Compatible Low-Level Date Algorithms", 2013,
// which the standard library has built in.

#include <zmt/raster/vector/isotime.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace ZMT::RASTER {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Takes a text from its beginning.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool isAtEnd() const { return rest_.empty(); }
    char next() const { return rest_.empty() ? '\0' : rest_.front(); }
    bool take(char c) {
        if (next() != c) return false;
        rest_.remove_prefix(1);
        return true;
    }
    /// So many digits; none where there are not so many.
    std::optional<int> number(unsigned digits) {
        if (rest_.size() < digits || !std::all_of(rest_.begin(), rest_.begin() + digits, isDigit)) return {};
        int value = 0;
        std::from_chars(rest_.data(), rest_.data() + digits, value);
        rest_.remove_prefix(digits);
        return value;
    }
    /// The part behind a point or a comma, 0 without either; none without a digit behind it.
    std::optional<double> fraction() {
        if (!take('.') && !take(',')) return 0.0;
        if (!isDigit(next())) return {};
        double value = 0.0;
        for (double place = 0.1; isDigit(next()); place *= 0.1) {
            value += (next() - '0') * place;
            rest_.remove_prefix(1);
        }
        return value;
    }

private:
    std::string_view rest_;
};

std::optional<int> numberUpTo(Reader & reader, int largest) {
    const std::optional<int> number = reader.number(2);
    return number && *number <= largest ? number : std::nullopt;
}

/// Seconds up to the beginning of a day.
std::optional<double> takeDate(Reader & reader) {
    const auto year = reader.number(4);
    const bool isLong = reader.take('-');
    const auto month = reader.number(2);
    if (!year || !month || isLong != reader.take('-')) return {};
    const auto day = reader.number(2);
    if (!day) return {};
    const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(unsigned(*month)),
                                           std::chrono::day(unsigned(*day))};
    if (!date.ok()) return {};
    return double(std::chrono::sys_days(date).time_since_epoch().count()) * 86400.0;
}

/// Seconds of the day.
std::optional<double> takeTime(Reader & reader) {
    const auto hour = numberUpTo(reader, 24);
    const bool isLong = reader.take(':');
    const auto minute = numberUpTo(reader, 59);
    if (!hour || !minute) return {};
    double seconds = 0.0;
    if (isLong ? reader.take(':') : isDigit(reader.next())) {
        const auto whole = numberUpTo(reader, 60);
        const auto part = whole ? reader.fraction() : std::nullopt;
        if (!part) return {};
        seconds = *whole + *part;
    }
    const double time = *hour * 3600.0 + *minute * 60.0 + seconds;
    // 24:00 is the end of the day; nothing lies behind it.
    if (*hour == 24 && time > 86400.0) return {};
    return time;
}

/// How far the zone is ahead of UTC, in seconds.
std::optional<double> takeZone(Reader & reader) {
    if (reader.isAtEnd() || reader.take('Z') || reader.take('z')) return 0.0;
    const bool isBehind = reader.take('-');
    if (!isBehind && !reader.take('+')) return {};
    const auto hours = numberUpTo(reader, 23);
    if (!hours) return {};
    const bool isLong = reader.take(':');
    const auto minutes = isLong || !reader.isAtEnd() ? numberUpTo(reader, 59) : 0;
    if (!minutes) return {};
    return (*hours * 3600.0 + *minutes * 60.0) * (isBehind ? -1.0 : 1.0);
}

} // namespace

std::optional<double> IsoTime::parse(std::string_view text) {
    Reader reader(text);
    const auto day = takeDate(reader);
    if (!day || reader.isAtEnd()) return day;
    if (!reader.take('T') && !reader.take('t') && !reader.take(' ')) return {};
    const auto time = takeTime(reader);
    const auto zone = time ? takeZone(reader) : std::nullopt;
    if (!zone || !reader.isAtEnd()) return {};
    return *day + *time - *zone;
}

std::string IsoTime::text(double time) {
    constexpr double first = -62167219200.0, behindLast = 253402300800.0; // the years 0 and 10000
    if (!(time >= first && time < behindLast)) return {};
    const double milliseconds = std::min(std::round(time * 1000.0), behindLast * 1000.0 - 1.0);
    const auto day = std::floor(milliseconds / 86400000.0);
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(int(day)))};
    const auto rest = int(milliseconds - day * 86400000.0);
    std::array<char, 40> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02u-%02uT%02d:%02d:%02d", int(date.year()),
                  unsigned(date.month()), unsigned(date.day()), rest / 3600000, rest / 60000 % 60,
                  rest / 1000 % 60);
    std::string text = buffer.data();
    if (rest % 1000 > 0) {
        std::snprintf(buffer.data(), buffer.size(), ".%03d", rest % 1000);
        text += buffer.data();
    }
    return text + 'Z';
}

} // namespace ZMT::RASTER
