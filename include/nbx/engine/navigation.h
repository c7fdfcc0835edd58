#pragma once

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/lookat.h>

namespace NBX {

/// Base of what moves the eye of a camera. At most one is active in a process.
class Navigation : public SharedObj {
    NBX_CLASS(Navigation, SharedObj)
public:
    /// `eye` is what it moves; null is reported.
    explicit Navigation(LookAt * eye);

    LookAt * eye() const { return eye_.get(); }

    /// Makes this the active navigation in the place of the one before. It stays so while it lives.
    void activate();
    /// Does nothing for a navigation that is not active.
    void deactivate();
    bool isActive() const;
    static SO<Navigation> activeNavigation();

    /// Moves the eye to where it is at `time`, in seconds of the navigation's own clock; false when the
    /// movement is at its end.
    virtual bool update(double time) = 0;

private:
    SO<LookAt> eye_;
};

} // namespace NBX
