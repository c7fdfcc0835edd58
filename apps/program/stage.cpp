#include "stage.h"

#include <map>
#include <string_view>
#include <vector>

#include <zmt/util/profiler.h>

namespace {

using ZMT::UTIL::Profiler;
using ZMT::UTIL::ProfilerData;

/// The stages that lie in each other, the innermost at the end. Only that one is measured.
thread_local std::vector<ProfilerData *> t_open;

/// A name is one row, also in the next run of the process.
ProfilerData * rowOf(const wchar_t * name) {
    static std::map<std::wstring_view, ProfilerData *> rows;
    ProfilerData *& row = rows[name];
    if (!row) row = Profiler::instance().newId(name);
    return row;
}

void enter(const wchar_t * name) {
    Profiler & profiler = Profiler::instance();
    if (!t_open.empty()) profiler.stop(t_open.back());
    t_open.push_back(rowOf(name));
    profiler.start(t_open.back());
}

} // namespace

Stage::Stage(const wchar_t * name) : isCounted_(!t_open.empty()) {
    if (isCounted_) enter(name);
}

Stage::~Stage() {
    if (!isCounted_ || t_open.empty()) return;
    Profiler & profiler = Profiler::instance();
    profiler.stop(t_open.back());
    t_open.pop_back();
    if (!t_open.empty()) profiler.start(t_open.back());
}

RunProfile::RunProfile(const wchar_t * rest) {
    constexpr int rounds = 5, loops = 50;
    Profiler::instance().measureOverhead(rounds, loops);
    Profiler::instance().reset();
    enter(rest);
}

RunProfile::~RunProfile() {
    end();
}

void RunProfile::end() {
    if (!t_open.empty()) Profiler::instance().stop(t_open.back());
    t_open.clear();
}

void RunProfile::tell() {
    end();
    Profiler::instance().dumpAll(0, 0.0);
}
