#include <zmt/core/misc/eventloop.h>

#include <QCoreApplication>

namespace ZMT::CORE {

/// The application object keeps references to what it is made of.
struct EventLoop::Impl {
    char name[4] = "zmt";
    char * arguments[2] = {name, nullptr};
    int count = 1;
    QCoreApplication application{count, arguments};
};

EventLoop::EventLoop() : impl_(QCoreApplication::instance() ? nullptr : std::make_unique<Impl>()) {}

EventLoop::~EventLoop() = default;

} // namespace ZMT::CORE
