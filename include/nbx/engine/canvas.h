#pragma once

#include <vector>

#include <nbx/engine/manager.h>
#include <nbx/math/area.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/so.h>

namespace NBX {

class Engine;
class SceneNode;

/// A picture of a scene: the root nodes, and when they are to be drawn again. Its clock watches it, from its
/// making on, and redisplays it when a request is due. Canvases belong to one thread.
class Canvas : public Manager {
    NBX_CLASS(Canvas, Manager)
public:
    ~Canvas() override;

    /// All canvases that exist, in the order of their making.
    static const std::vector<Canvas *> & canvasList();

    /// Adds a root node behind the others. A null node is reported under "node" with "no node".
    void append(SceneNode * node);
    /// Removes the first occurrence; false when there is none.
    bool remove(const SceneNode * node);
    unsigned rootNodes() const { return static_cast<unsigned>(roots_.size()); }
    /// Null for a number out of range, which is reported.
    SceneNode * rootNode(unsigned i) const;

    /// The engine that draws this canvas; null while there is none.
    virtual SO<Engine> processor() const = 0;
    /// In pixels.
    virtual unsigned getWidth() const = 0;
    virtual unsigned getHeight() const = 0;

    /// Draws the root nodes, and clears the requests made before it began.
    virtual void redisplay();

    /// Puts it back on its clock, which watches it without keeping it.
    void activate() override;
    /// Serves a request that is due.
    void tick(const NBXTime & now) override;
    /// When the request is due, where redisplay is enabled.
    NBXTime nextTick(const NBXTime & lastTick) const override;

    /// Whether the clock and the window system may redisplay it, as at first; requests wait meanwhile. To be
    /// switched off where an event loop runs in the middle of a frame. `redisplay` itself always draws.
    bool isRedisplayEnabled() const { return isRedisplayEnabled_; }
    void setRedisplayEnabled(bool enabled);

    /// Asks for a redisplay `seconds` from now, or at the time of an earlier request that comes sooner.
    void postForRedisplay(double seconds);
    static void postAllForRedisplay(double seconds);
    bool redisplayPending() const { return pending_; }
    /// Whether a request is due at `now`, a time of its clock.
    bool redisplayDue(double now) const { return pending_ && due_ <= now; }
    /// When the request is due; means something only while one is pending.
    double redisplayTime() const { return due_; }

    /// 0, as at first: every picture is complete at once. 1: data may come later, and the picture is drawn
    /// again then.
    int getRenderingMode() const { return renderingMode_; }
    void setRenderingMode(int mode) { renderingMode_ = mode; }

protected:
    /// Null for the clock of the process.
    explicit Canvas(Clock * clock = nullptr);

    /// Draws a canvas whose request is due; if not overridden, by `redisplay`.
    virtual void serveRequest();
    /// Evaluates the root nodes on a picture of the area `viewport`, under the context data of this canvas,
    /// a viewport and the global camera of the root nodes.
    void paintRootNodes(Engine * engine, const Area & viewport);
    /// Forgets the requests made so far.
    void clearRedisplayRequests() { pending_ = false; }

private:
    std::vector<SO<SceneNode>> roots_;
    bool isRedisplayEnabled_ = true;
    bool pending_ = false;
    double due_ = 0.0;
    int renderingMode_ = 0;
};

} // namespace NBX
