#include <nbx/object/nbxtime.h>

#include <chrono>

namespace NBX {

NBXTime NBXTime::now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace NBX
