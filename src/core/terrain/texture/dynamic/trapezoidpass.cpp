#include "trapezoidpass.h"

namespace ZMT::CORE {

namespace {

TrapezoidPass * s_current = nullptr;

} // namespace

TrapezoidPass::TrapezoidPass() : before_(s_current) {
    s_current = this;
}

TrapezoidPass::~TrapezoidPass() {
    s_current = before_;
}

TrapezoidPass * TrapezoidPass::current() {
    return s_current;
}

} // namespace ZMT::CORE
