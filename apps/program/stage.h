#pragma once

/// A part of a run, such as reading or drawing, for as long as it lives. One that lies in another one takes
/// its time from that, so that all stages together are the whole run. On other threads than that of the run,
/// and without a `RunProfile`, it is nothing: what workers do counts for the stage that waits for them.
class Stage {
public:
    /// `name` is a literal: a calm word, at most 20 letters. Stages of one name are one row of the table.
    explicit Stage(const wchar_t * name);
    ~Stage();
    Stage(const Stage &) = delete;
    Stage & operator=(const Stage &) = delete;

private:
    bool isCounted_;
};

/// The run of a program, divided into stages from here on. There is one at a time, on the thread that draws.
class RunProfile {
public:
    /// What lies in no stage is told as `rest`, a literal.
    explicit RunProfile(const wchar_t * rest);
    ~RunProfile();
    RunProfile(const RunProfile &) = delete;
    RunProfile & operator=(const RunProfile &) = delete;

    /// Writes the table up to now on the standard error stream, by `ZMT::UTIL::Profiler`, in the order in
    /// which the stages began for the first time. Nothing counts behind it. Stages around it are in it.
    void tell();

private:
    void end();
};
