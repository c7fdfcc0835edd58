#pragma once

#include <functional>
#include <memory>

class QCoreApplication;

/// The application object in whose event loop transfers from web servers run, while this lives.
class WebApplication {
public:
    WebApplication();
    ~WebApplication();
    WebApplication(const WebApplication &) = delete;
    WebApplication & operator=(const WebApplication &) = delete;

    static bool exists();
    /// What is due now.
    static void processEvents();
    /// Calls `function` once, from within the event loop.
    static void later(std::function<void()> function);

private:
    std::unique_ptr<QCoreApplication> application_;
};
