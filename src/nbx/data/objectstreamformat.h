#pragma once

#include <bit>
#include <cstdint>

namespace NBX {

// The parts of the object stream's form that reader and writer share; docs/object-stream.md tells the whole.

static_assert(std::endian::native == std::endian::little, "numbers are stored in memory order");

/// The line ends in it show a file that was changed as if it were text.
inline constexpr std::uint8_t s_streamMagic[8] = {'N', 'B', 'X', 'O', '\r', '\n', 0x1A, '\n'};
inline constexpr std::uint32_t s_streamVersion = 1;

/// First byte of each record.
enum RecordType : std::uint8_t {
    RT_Bool = 1,
    RT_Int,
    RT_Unsigned,
    RT_UnsignedShort,
    RT_Unsigned64,
    RT_Float,
    RT_Double,
    RT_String,
    RT_Vector,
    RT_Bounds,
    RT_Matrix,
    RT_Object,
    RT_Raw,
    RT_Container,
    RT_Superclass,
};

inline constexpr std::uint64_t s_vectorBytes = 3 * std::uint64_t{8};
inline constexpr std::uint64_t s_boundsBytes = 1 + 6 * std::uint64_t{8};
inline constexpr std::uint64_t s_matrixBytes = 16 * std::uint64_t{8};
inline constexpr std::uint64_t s_sectionSizeBytes = 8;

} // namespace NBX
