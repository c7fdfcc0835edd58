#pragma once

#include <QTimer>

/// Lets the event loop drive the clock of the process: a timer that fires when the clock's next tick is due.
class ClockTimer : public QObject {
    Q_OBJECT
public:
    /// Makes that of the application; further calls do nothing. The application ends it.
    static void start();
    ~ClockTimer() override;

private:
    explicit ClockTimer(QObject * parent);
    void serve();
    void set();

    QTimer timer_;
};
