#include <zmt/core/misc/eventloop.h>

#include <clocale>

#include <QCoreApplication>

namespace ZMT::CORE {

/// The application object keeps references to what it is made of.
struct EventLoop::Impl {
    char name[4] = "zmt";
    char * arguments[2] = {name, nullptr};
    int count = 1;
    QCoreApplication application{count, arguments};
};

EventLoop::EventLoop() {
    if (QCoreApplication::instance()) return;
    impl_ = std::make_unique<Impl>();
    // It took over the user's locale, in which numbers may be written otherwise.
    std::setlocale(LC_NUMERIC, "C");
}

EventLoop::~EventLoop() = default;

} // namespace ZMT::CORE
