#pragma once

#include <memory>

#include <nbx/object/sharedobj.h>

namespace ZMT::CORE {

/// Counts from 0 up to 0x7fffffff; further increases are lost. Destroying it wakes nobody.
class Semaphore : public NBX::SharedObj {
    NBX_CLASS(Semaphore, NBX::SharedObj)
public:
    Semaphore();
    /// Stands for the same count.
    Semaphore(const Semaphore & other) = default;
    Semaphore & operator=(const Semaphore & other) = default;
    ~Semaphore() override;

    /// Releases one count.
    virtual void increase();
    /// Takes one count; waits for it without limit.
    virtual void decrease();

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

} // namespace ZMT::CORE
