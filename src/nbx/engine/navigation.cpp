#include <nbx/engine/navigation.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/wo.h>

namespace NBX {

namespace {

WO<Navigation> & active() {
    static WO<Navigation> navigation;
    return navigation;
}

} // namespace

NBX_CLASS_IMPL(Navigation, SharedObj)

Navigation::Navigation(LookAt * eye) : eye_(eye) {
    NBX_CHECK(eye, L"no eye");
}

void Navigation::activate() {
    active() = WO<Navigation>(this);
}

void Navigation::deactivate() {
    if (isActive()) active() = WO<Navigation>();
}

bool Navigation::isActive() const {
    return activeNavigation() == this;
}

SO<Navigation> Navigation::activeNavigation() {
    return active().lock();
}

} // namespace NBX
