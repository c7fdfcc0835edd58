#include <zmt/util/cameraposition.h>

#include <ostream>

#include <nbx/object/serializationmanager.h>

namespace ZMT::UTIL {

namespace {

const CameraPosition::Vector s_up(0.0, 1.0, 0.0);

struct Shown {
    const CameraPosition::Vector & vector;
};

std::wostream & operator<<(std::wostream & stream, const Shown & shown) {
    return stream << L"(" << shown.vector.x << L", " << shown.vector.y << L", " << shown.vector.z << L")";
}

} // namespace

CameraPosition::CameraPosition(const Vector & from, const Vector & to, const Vector & up)
    : from_(from), to_(to), up_(up) {}

CameraPosition::CameraPosition(const std::wstring & name, const Vector & from, const Vector & to,
                               const Vector & up)
    : from_(from), to_(to), up_(up), name_(name) {}

const CameraPosition::Vector & CameraPosition::getFrom() const {
    return from_;
}

void CameraPosition::setFrom(const Vector & from) {
    from_ = from;
    modified();
}

const CameraPosition::Vector & CameraPosition::getTo() const {
    return to_;
}

void CameraPosition::setTo(const Vector & to) {
    to_ = to;
    modified();
}

const CameraPosition::Vector & CameraPosition::getUp() const {
    return up_;
}

void CameraPosition::setUp(const Vector & up) {
    up_ = up;
    modified();
}

void CameraPosition::setFromTo(const Vector & from, const Vector & to) {
    from_ = from;
    to_ = to;
    modified();
}

void CameraPosition::setFromToUp(const Vector & from, const Vector & to, const Vector & up) {
    from_ = from;
    to_ = to;
    up_ = up;
    modified();
}

const std::wstring & CameraPosition::getName() const {
    return name_;
}

void CameraPosition::setName(const std::wstring & name) {
    name_ = name;
    modified();
}

double CameraPosition::getDuration() const {
    return duration_;
}

void CameraPosition::setDuration(double duration) {
    duration_ = duration;
    modified();
}

bool CameraPosition::getIsCircle() const {
    return isCircle_;
}

void CameraPosition::setIsCircle(bool isCircle) {
    isCircle_ = isCircle;
    modified();
}

void CameraPosition::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, this);
    m.attribute("from", from_);
    m.attribute("to", to_);
    NBX::attributeWithDefault(m, "up", up_, s_up);
    m.attribute("name", name_);
    NBX::attributeWithDefault(m, "duration", duration_, s_duration);
    NBX::attributeWithDefault(m, "isCircle", isCircle_, false);
}

std::wostream & operator<<(std::wostream & stream, const CameraPosition & position) {
    return stream << L"\tCameraPosition\n"
                  << L"\tname: " << position.getName() << L"\n"
                  << L"\tlookFrom: " << Shown{position.getFrom()} << L"\n"
                  << L"\tlookTo: " << Shown{position.getTo()} << L"\n"
                  << L"\tlookUp: " << Shown{position.getUp()} << L"\n"
                  << L"\tduration: " << position.getDuration() << L"\n"
                  << L"\tisCircle: " << position.getIsCircle() << L"\n";
}

NBX_STORED_CLASS_IMPL(CameraPosition, NBX::SharedObj)

} // namespace ZMT::UTIL
