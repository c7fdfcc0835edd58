#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include <nbx/engine/handler.h>
#include <nbx/object/so.h>

namespace NBX {

/// The registered handlers of one class of engines, found by service and target. Filled while libraries
/// load, and read by the engines.
class HandlerTable {
public:
    /// Takes the handler over. A null one is reported under "handler" with "no handler".
    void add(Handler * handler);
    /// Appends the handlers of a service for exactly this class, the latest first.
    void find(const ID & service, const ID & target, std::vector<Handler *> & result) const;

    /// Number of registrations in all tables of the process so far.
    static std::uint64_t registrations();

private:
    std::unordered_map<ID, std::vector<SO<Handler>>> byTarget_;
};

} // namespace NBX
