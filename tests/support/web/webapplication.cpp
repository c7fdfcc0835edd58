#include "webapplication.h"

#include <clocale>

#include <QCoreApplication>
#include <QTimer>

namespace {

int s_count = 1;
char s_name[] = "tests";
char * s_names[] = {s_name, nullptr};

} // namespace

WebApplication::WebApplication() : application_(std::make_unique<QCoreApplication>(s_count, s_names)) {
    // The application object takes over the locale of the user.
    std::setlocale(LC_NUMERIC, "C");
}

WebApplication::~WebApplication() = default;

bool WebApplication::exists() {
    return QCoreApplication::instance() != nullptr;
}

void WebApplication::processEvents() {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
}

void WebApplication::later(std::function<void()> function) {
    QTimer::singleShot(0, std::move(function));
}
