#include <zmt/core/misc/httpsettings.h>

namespace ZMT::CORE {

namespace {

bool s_followsRedirects = false;

} // namespace

void HttpSettings::setFollowsRedirects(bool follows) {
    s_followsRedirects = follows;
}

bool HttpSettings::getFollowsRedirects() {
    return s_followsRedirects;
}

} // namespace ZMT::CORE
