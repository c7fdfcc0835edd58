#pragma once

#include <csignal>

#include <pthread.h>

/// While it lives, a signal that ends a thread's waiting in the system, and does nothing else, may be sent.
class InterruptingSignal {
public:
    InterruptingSignal() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        ::sigaction(s_signal, &action, &before_);
    }
    ~InterruptingSignal() { ::sigaction(s_signal, &before_, nullptr); }
    InterruptingSignal(const InterruptingSignal &) = delete;
    InterruptingSignal & operator=(const InterruptingSignal &) = delete;

    void sendTo(pthread_t thread) const { ::pthread_kill(thread, s_signal); }

private:
    static constexpr int s_signal = SIGUSR1;
    struct sigaction before_ = {};
};
