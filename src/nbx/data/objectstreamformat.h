#pragma once

#include <bit>
#include <cstdint>

namespace NBX {

// The parts of the object stream's form that reader and writer share; docs/object-stream.md tells the whole.

static_assert(std::endian::native == std::endian::little, "numbers are stored in memory order");

/// The line ends in it show a file that was changed as if it were text.
inline constexpr std::uint8_t s_streamMagic[8] = {'N', 'B', 'X', 'O', '\r', '\n', 0x1A, '\n'};
/// The version that is written.
inline constexpr std::uint32_t s_streamVersion = 2;
/// The same, and its bodies are deflated (`DeflatedBlocks`).
inline constexpr std::uint32_t s_deflatedStreamVersion = 3;
/// Its tables lie in front of the bodies, sizes of sections have 8 bytes, and there are no runs.
inline constexpr std::uint32_t s_firstStreamVersion = 1;
/// Where the tables begin stands behind magic and version.
inline constexpr std::uint64_t s_tablesPlace = sizeof s_streamMagic + sizeof s_streamVersion;
/// The largest size of a data resource.
inline constexpr std::uint64_t s_largestStream = UINT32_MAX;

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
    RT_Run, ///< several numbers of one name and type
};

/// Bytes of a number that may be part of a run; 0 for what may not.
inline constexpr std::uint64_t runElementBytes(std::uint8_t type) {
    switch (type) {
    case RT_UnsignedShort:
        return 2;
    case RT_Int:
    case RT_Unsigned:
    case RT_Float:
        return 4;
    case RT_Unsigned64:
    case RT_Double:
        return 8;
    default:
        return 0;
    }
}

inline constexpr std::uint64_t s_vectorBytes = 3 * std::uint64_t{8};
inline constexpr std::uint64_t s_boundsBytes = 1 + 6 * std::uint64_t{8};
inline constexpr std::uint64_t s_matrixBytes = 16 * std::uint64_t{8};
inline constexpr std::uint64_t s_sectionSizeBytes = 8;

} // namespace NBX
