#pragma once

#include <exception>
#include <stdexcept>
#include <string>

/// Arguments that cannot be used; the program ends with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Data that cannot be used, or a run that was cancelled; the program ends with status 1.
class DataError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum ExitStatus { ES_Success = 0, ES_Data = 1, ES_Usage = 2 };

/// In all messages from now on `shown` stands in the place of `path`, as for files that are there for this
/// run alone.
void showInstead(const std::string & path, const std::string & shown);
/// One line on the standard error stream, whatever `message` holds. URLs in it show no login and no query.
void writeError(std::string message);
/// Text from a file for one line of a terminal: what could move its cursor or begin lines becomes spaces.
std::string oneLine(std::string text);
/// What to tell the user about `error`; URLs as above.
std::string messageOf(const std::exception & error);
