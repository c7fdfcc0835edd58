#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <set>
#include <vector>

#include <nbx/object/errorhandler.h>

#include "treenodebuilder.h"

namespace ZMT::CORE {

/// Builds one tree on several threads: whole subtrees of a level side by side, and the nodes above them as
/// soon as their children are there, in the order of the recursion as far as threads are free.
///
/// Laws: (1) the tree is that of one thread; (2) reports reach the calling thread in the order of one
/// thread, when the last node is built; (3) of several exceptions the first in this order is thrown, behind
/// the reports before it; (4) no thread is left when `build` ends, however it does.
class TreeBuildPool {
public:
    TreeBuildPool(const TreeFrame & frame, const TreePart & whole);
    ~TreeBuildPool();

    /// The root, or null when `goOn` stopped it. `goOn` is called on this thread alone, several times a
    /// second, with values that do not fall. Builds once.
    /// Throws `std::system_error` when the system gives no thread at all.
    NBX::SO<GeometryPatch> build(unsigned threads, const TreeNodeBuilder::GoOn & goOn);

    /// Where the strips of the root converge.
    const TreeNodeBuilder::Point & centre() const;

private:
    /// A whole subtree, or a node above such.
    struct Task {
        TreePart part;
        std::size_t firstDraw = 0;         ///< of the subtree, or the node's own
        std::vector<std::size_t> children; ///< empty for a subtree
        std::size_t parent = 0;            ///< itself for the root
        std::size_t waitsFor = 0;          ///< children that are not complete

        NBX::SO<GeometryPatch> patch;
        KeptVertices kept;
        TreeNodeBuilder::Point centre;
        std::vector<NBX::ErrorReport> entering, reports; ///< before and after those of the children
        std::exception_ptr failure;
    };

    std::size_t addTasks(TreePlan & plan, const TreePart & part, std::size_t firstDraw);
    void work();
    void run(Task & task, TreeNodeBuilder & builder);
    void runOverChildren(Task & task, TreeNodeBuilder & builder);
    void complete(std::size_t number);
    bool isOver() const;
    bool watch(const TreeNodeBuilder::GoOn & goOn);
    void stop();
    void release(const Task & task) const;

    const TreeFrame & frame_;
    std::vector<Task> tasks_; ///< in the order in which the recursion completes them
    std::atomic<bool> isStopped_{false};

    std::mutex mutex_; ///< guards what follows, and `waitsFor`
    std::condition_variable changed_;
    std::set<std::size_t> ready_;
    std::size_t running_ = 0;
    std::size_t firstFailed_; ///< nothing behind it is begun
    double done_ = 0.0;       ///< on the progress scale
};

} // namespace ZMT::CORE
