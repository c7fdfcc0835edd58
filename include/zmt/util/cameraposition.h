#pragma once

#include <iosfwd>
#include <string>

#include <nbx/math/vector3base.h>
#include <nbx/object/sharedobj.h>

namespace ZMT::UTIL {

/// A view with a name, and how a camera gets there: stored in scenes as a point to come back to.
///
/// Positions are in the coordinates of the scene that stores them. A new or a read position has whatever
/// numbers it was given: who flies to it checks that eye and aim differ and that `up` does not lie along the
/// view.
class CameraPosition : public NBX::SharedObj {
    NBX_STORED_CLASS(CameraPosition, NBX::SharedObj)
public:
    using Vector = NBX::Vector3Base<double>;

    /// Without a name; the flight takes 5 s and is straight.
    CameraPosition(const Vector & from, const Vector & to, const Vector & up);
    CameraPosition(const std::wstring & name, const Vector & from, const Vector & to, const Vector & up);
    CameraPosition(const CameraPosition & other) = default;

    /// Where the eye is.
    virtual const Vector & getFrom() const;
    virtual void setFrom(const Vector & from);
    /// What it looks at.
    virtual const Vector & getTo() const;
    virtual void setTo(const Vector & to);
    /// What is up in the picture.
    virtual const Vector & getUp() const;
    virtual void setUp(const Vector & up);
    virtual void setFromTo(const Vector & from, const Vector & to);
    virtual void setFromToUp(const Vector & from, const Vector & to, const Vector & up);
    virtual const std::wstring & getName() const;
    virtual void setName(const std::wstring & name);
    /// Of the flight to this view, in seconds.
    virtual double getDuration() const;
    virtual void setDuration(double duration);
    /// Whether the flight is a circle about what is looked at.
    virtual bool getIsCircle() const;
    virtual void setIsCircle(bool isCircle);

    void serialize(NBX::SerializationManager & m) override;

protected:
    /// All vectors are zero; for reading.
    CameraPosition() = default;

private:
    static constexpr double s_duration = 5.0;

    Vector from_;
    Vector to_;
    Vector up_;
    std::wstring name_;
    double duration_ = s_duration;
    bool isCircle_ = false;
};

/// Writes all of it, for people: one item a line, behind a tab each.
std::wostream & operator<<(std::wostream & stream, const CameraPosition & position);

} // namespace ZMT::UTIL
