#pragma once

#include <string>

namespace NBX {

class Progress;

/// Shows the progress of long operations; see `Progress::setDisplay`.
class ProgressDisplay {
public:
    virtual ~ProgressDisplay() = default;
    virtual void begin(const Progress & progress) = 0;
    /// Called at most every tenth of a second; false cancels the operation.
    virtual bool update(const Progress & progress) = 0;
    /// Called once, also for an operation that was cancelled.
    virtual void end(const Progress & progress) = 0;
};

/// The state of one long operation: made by the operation, shown by the display of the process. Used by
/// the thread that runs the operation.
class Progress {
public:
    /// `total` is the value at which the operation is complete. Where `cancelable` is false, the
    /// display's wish to cancel is not heard; `showsTimeLeft` lets it estimate.
    explicit Progress(const std::string & title, double total = 1.0, bool cancelable = true,
                      bool showsTimeLeft = true, const std::string & text = "");
    ~Progress();
    Progress(const Progress &) = delete;
    Progress & operator=(const Progress &) = delete;

    /// False once the operation has been cancelled. Non-empty texts replace the two lines shown.
    bool update(double value, const std::string & text = "", const std::string & detail = "");
    /// Marks the operation as complete.
    void finish();

    bool isCanceled() const { return canceled_; }
    bool isFinished() const { return finished_; }
    double currentValue() const { return value_; }
    double totalValue() const { return total_; }
    const std::string & title() const { return title_; }
    const std::string & text() const { return text_; }
    const std::string & detail() const { return detail_; }
    bool showsTimeLeft() const { return showsTimeLeft_; }
    /// Seconds since the start.
    double elapsed() const;
    /// Seconds until the end at the pace so far; negative while it cannot be told.
    double timeLeft() const;

    /// The display of the process, borrowed; null, as at start, shows nothing. Returns the one before.
    static ProgressDisplay * setDisplay(ProgressDisplay * display);

private:
    std::string title_, text_, detail_;
    double total_, value_ = 0.0;
    double started_, shown_ = -1.0;
    bool cancelable_, showsTimeLeft_;
    bool canceled_ = false, finished_ = false;
    ProgressDisplay * display_;
};

/// Shows a bar, the share done and the time left on the standard error stream when that is a terminal,
/// and cancels when the user presses Ctrl-C; the second time the process ends at once. At most one exists at
/// a time.
class ConsoleProgressDisplay : public ProgressDisplay {
public:
    ConsoleProgressDisplay();
    ~ConsoleProgressDisplay() override;

    void begin(const Progress & progress) override;
    bool update(const Progress & progress) override;
    void end(const Progress & progress) override;

    /// True once Ctrl-C was pressed.
    static bool interrupted();

    /// What does not look whether it is cancelled is ended so many seconds after Ctrl-C, the process with it:
    /// with `status` as its exit status and, while a display exists, `farewell` on the standard error stream,
    /// at most 200 bytes. For 0, as at start, everything takes its time.
    static void setPatience(double seconds, const std::string & farewell, int status);

    /// The line shown, without control characters; `width` is the number of columns.
    static std::string line(const Progress & progress, unsigned width);

private:
    bool isTerminal_;
};

} // namespace NBX
