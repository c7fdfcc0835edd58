#pragma once

#include <nbx/image/image.h>

namespace NBX {

/// Fills `target` with the picture of `source` at another size. Where an axis shrinks, each target pixel is
/// the average over the exact area that it covers, also for sizes that do not divide; where it grows, the
/// centres of the source pixels are interpolated linearly. Neither image may be empty.
void scaleImage(const Image & source, Image & target);

} // namespace NBX
