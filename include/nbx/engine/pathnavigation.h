#pragma once

#include <vector>

#include <nbx/engine/navigation.h>

namespace NBX {

/// A camera flight along given views.
class PathNavigation : public Navigation {
    NBX_CLASS(PathNavigation, Navigation)
public:
    struct Key {
        double time; ///< in seconds
        Vector3Base<double> from;
        Vector3Base<double> to;
    };

    /// The keys are sorted by time.
    PathNavigation(LookAt * eye, std::vector<Key> keys);

    /// Seconds from the first key to the last; 0 without keys.
    double duration() const;
    /// Eye and target go straight from key to key; before the first and behind the last they stand still.
    bool update(double time) override;

private:
    std::vector<Key> keys_;
};

} // namespace NBX
