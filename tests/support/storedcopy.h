#pragma once

#include <cstdint>
#include <vector>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>

/// What comes back when `object` is written and read.
template <class T> NBX::SO<T> storedCopy(const T & object) {
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(object);
    NBX::ObjectStreamReader reader(bytes.data(), bytes.size());
    return NBX::soCast<T>(reader.read());
}
