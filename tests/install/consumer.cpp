// Uses the installed package the way another project does.

#include "nbx/math/vector3base.h"

#include <cstdio>

int main() {
    const NBX::Vector3Base<double> sum =
        NBX::Vector3Base<double>(1.0, 2.0, 3.0) + NBX::Vector3Base<double>(3.0, 2.0, 1.0);
    if (sum[0] != 4.0 || sum[1] != 4.0 || sum[2] != 4.0) {
        std::fputs("consumer: wrong sum\n", stderr);
        return 1;
    }
    return 0;
}
