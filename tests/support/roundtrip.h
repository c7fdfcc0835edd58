#pragma once

#include <cstdint>
#include <vector>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/object/so.h>

/// What reading gives for the object that was written; null when that is of another class.
template <class T> NBX::SO<T> roundTrip(const T & object, bool omitsDefaults = true) {
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(object, omitsDefaults);
    return dynamic_cast<T *>(NBX::ObjectStreamReader(bytes.data(), bytes.size()).read().get());
}

template <class T> NBX::SO<T> roundTrip(const NBX::SO<T> & object, bool omitsDefaults = true) {
    return roundTrip(*object, omitsDefaults);
}
