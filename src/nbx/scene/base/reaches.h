#pragma once

namespace NBX {

class Visitable;

/// Whether `target` is `from` or hangs anywhere below it.
bool reaches(const Visitable * from, const Visitable * target);

} // namespace NBX
