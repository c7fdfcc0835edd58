#pragma once

#include <nbx/gl/context/namegl.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Counts the fragments that pass the depth test while it is the active attribute of its kind, or between
/// `begin` and `end`. One query counts at a time: beginning another ends it. It may be used again and again.
class OcclusionQueryGL : public MonoAttribute {
    NBX_CLASS(OcclusionQueryGL, MonoAttribute)
public:
    enum QueryMode {
        QM_AnyFragments = 0,  ///< 1 when any passed, else 0
        QM_CountFragments = 1 ///< how many passed
    };

    explicit OcclusionQueryGL(QueryMode mode = QM_CountFragments);
    /// The same by the mode's number.
    explicit OcclusionQueryGL(int mode);
    ~OcclusionQueryGL() override;

    QueryMode queryMode() const { return mode_; }

    /// Need a current context; the result is to be had in the same one.
    void begin() const;
    void end() const;
    /// Whether the result is there without waiting. False before the first `end`, and in another context.
    bool isAvailable() const;
    /// The result of the last `begin` to `end`; waits for it. 0 when there is none.
    unsigned fragmentCount() const;

private:
    bool hasResult() const;

    mutable NameGL name_;
    mutable bool ended_ = false;
    QueryMode mode_;
};

} // namespace NBX
