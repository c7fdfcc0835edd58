// The tasks are numbered in the order of the recursion, children before parents. Workers take the ready task
// of the lowest number; who completes the last child of a node makes the node ready. The calling thread
// watches and may stop them.
//
// Reports and failures stay with their tasks and are handed on at the end, in the order of one thread.

#include "treebuildpool.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "nbx/object/heldreports.h"

namespace ZMT::CORE {

namespace {

/// Subtrees begin here: up to a thousand of them keep many threads busy to the end, and are large enough to
/// be worth a lock.
constexpr unsigned s_subtreeLevel = 5;
constexpr auto s_watchInterval = std::chrono::milliseconds(50);

} // namespace

TreeBuildPool::TreeBuildPool(const TreeFrame & frame, const TreePart & whole) : frame_(frame) {
    TreePlan plan(frame.maxVertices);
    const std::size_t root = addTasks(plan, whole, 0);
    tasks_[root].parent = root;
    firstFailed_ = tasks_.size();
}

TreeBuildPool::~TreeBuildPool() = default;

/// Adds what lies below `part` before it, and returns its number.
std::size_t TreeBuildPool::addTasks(TreePlan & plan, const TreePart & part, std::size_t firstDraw) {
    Task task;
    task.part = part;
    task.firstDraw = firstDraw;
    if (part.level < s_subtreeLevel && !plan.isLeaf(part))
        for (const TreePart & child : TreePlan::cut(part)) {
            task.children.push_back(addTasks(plan, child, task.firstDraw));
            task.firstDraw += plan.innerNodes(child);
        }
    const std::size_t number = tasks_.size();
    task.waitsFor = task.children.size();
    for (const std::size_t child : task.children)
        tasks_[child].parent = number;
    if (task.children.empty()) ready_.insert(number);
    tasks_.push_back(std::move(task));
    return number;
}

NBX::SO<GeometryPatch> TreeBuildPool::build(unsigned threads, const TreeNodeBuilder::GoOn & goOn) {
    bool isComplete = false;
    {
        // However this block is left, the threads are told to stop and are waited for.
        std::vector<std::jthread> workers;
        const struct AtEnd {
            TreeBuildPool & pool;
            ~AtEnd() { pool.stop(); }
        } atEnd{*this};
        try {
            while (workers.size() < std::min<std::size_t>(threads, tasks_.size()))
                workers.emplace_back([this] { work(); });
        } catch (const std::system_error &) {
            // Those that the system gave will do.
            if (workers.empty()) throw;
        }
        isComplete = watch(goOn);
    }
    release(tasks_.back());
    return isComplete ? tasks_.back().patch : nullptr;
}

const TreeNodeBuilder::Point & TreeBuildPool::centre() const {
    return tasks_.back().centre;
}

/// On the calling thread, until there is nothing left to do. False when it was stopped.
bool TreeBuildPool::watch(const TreeNodeBuilder::GoOn & goOn) {
    std::unique_lock lock(mutex_);
    while (!isOver()) {
        const double done = done_;
        lock.unlock();
        const bool goesOn = goOn(done);
        lock.lock();
        if (!goesOn) return false;
        changed_.wait_for(lock, s_watchInterval, [this] { return isOver(); });
    }
    return true;
}

void TreeBuildPool::stop() {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    changed_.notify_all();
}

bool TreeBuildPool::isOver() const {
    return isStopped_ || (ready_.empty() && running_ == 0);
}

void TreeBuildPool::work() {
    TreeNodeBuilder builder(frame_, [this](double) { return !isStopped_; });
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isOver() || !ready_.empty(); });
        if (isOver()) return;
        const std::size_t number = *ready_.begin();
        ready_.erase(ready_.begin());
        ++running_;
        lock.unlock();
        run(tasks_[number], builder);
        lock.lock();
        --running_;
        complete(number);
        changed_.notify_all();
    }
}

void TreeBuildPool::run(Task & task, TreeNodeBuilder & builder) {
    try {
        if (!task.children.empty()) return runOverChildren(task, builder);
        const NBX::HeldReports held(task.reports);
        task.patch = builder.build(task.part, task.firstDraw, task.kept);
        task.centre = builder.centre();
    } catch (...) {
        task.failure = std::current_exception();
    }
}

void TreeBuildPool::runOverChildren(Task & task, TreeNodeBuilder & builder) {
    {
        const NBX::HeldReports held(task.entering);
        if (!builder.enter(task.part)) return;
    }
    const NBX::HeldReports held(task.reports);
    NBX::SO<TreeNodeBuilder::Children> children(new TreeNodeBuilder::Children);
    KeptVertices below;
    for (const std::size_t number : task.children) {
        Task & child = tasks_[number];
        children->append(std::exchange(child.patch, nullptr));
        below.append(std::exchange(child.kept, {}));
    }
    task.patch = builder.buildTin(task.part.domain, children, std::move(below), task.firstDraw, task.kept);
    task.centre = builder.centre();
}

/// Under the lock.
void TreeBuildPool::complete(std::size_t number) {
    const Task & task = tasks_[number];
    if (task.children.empty()) done_ += task.part.progressScale;
    if (task.failure) {
        firstFailed_ = std::min(firstFailed_, number);
        ready_.erase(ready_.lower_bound(firstFailed_), ready_.end());
        return;
    }
    if (number == task.parent) return;
    if (--tasks_[task.parent].waitsFor == 0 && task.parent < firstFailed_) ready_.insert(task.parent);
}

/// Hands on what was reported and thrown at a node and below it.
void TreeBuildPool::release(const Task & task) const {
    NBX::HeldReports::release(task.entering);
    for (const std::size_t child : task.children)
        release(tasks_[child]);
    NBX::HeldReports::release(task.reports);
    if (task.failure) std::rethrow_exception(task.failure);
}

} // namespace ZMT::CORE
