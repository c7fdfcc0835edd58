#pragma once

#include <nbx/image/image.h>

namespace NBX {

/// Conversions of lines of pixels between layer sequences and component types. Floating point components are
/// 0 to 1 where an integer type stands behind them; on the way to an integer type they are cut to that range,
/// and what is no number becomes 0.
namespace PixelLine {

/// `count` pixels to red, green, blue, alpha.
void toRgba(const void * line, LayerSequence sequence, int dataType, int count, float * rgba);
void fromRgba(const float * rgba, int count, LayerSequence sequence, int dataType, void * line);

/// `count` components, whatever their layers.
void toFloat(const void * components, int dataType, std::size_t count, float * values);
void fromFloat(const float * values, std::size_t count, int dataType, void * components);

/// From any format to any other; the same format is copied bit by bit.
void convert(const void * from, LayerSequence fromSequence, int fromType, void * to, LayerSequence toSequence,
             int toType, int count);
/// The same to floating point components of the layers `toSequence`.
void convertToFloat(const void * from, LayerSequence fromSequence, int fromType, LayerSequence toSequence,
                    int count, float * values);

} // namespace PixelLine

} // namespace NBX
