#pragma once

#include <cstring>
#include <functional>
#include <memory>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/object/exception.h>

#include "support/damagedfiles.h"
#include "support/recordedreports.h"

/// What is left of an object when its stream is damaged; null where it is refused. The bytes lie in a buffer
/// of exactly their size, so that a sanitizer sees a look beyond their end.
inline NBX::SO<NBX::SharedObj> readDamaged(const std::uint8_t * bytes, std::size_t size) {
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
    if (size > 0) std::memcpy(exact.get(), bytes, size);
    try {
        return NBX::ObjectStreamReader(exact.get(), size).read();
    } catch (const NBX::Exception &) {
        return nullptr;
    }
}

/// Reads the stream of `object` at every truncated length and with random changes, and hands what comes to
/// `look`. No look may crash, hang, or take memory that the stream does not justify.
inline void expectModestReading(const NBX::SharedObj & object,
                                const std::function<void(const NBX::SO<NBX::SharedObj> &)> & look = {}) {
    const RecordedReports reports;
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(object, false);
    ASSERT_TRUE(readDamaged(bytes.data(), bytes.size()));
    const ModestLook modest(bytes.size());
    const auto judge = [&](const std::vector<std::uint8_t> & damaged) {
        const auto read = readDamaged(damaged.data(), damaged.size());
        if (read && look) look(read);
    };
    for (std::size_t size = 0; size < bytes.size(); ++size)
        judge({bytes.begin(), bytes.begin() + std::ptrdiff_t(size)});
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned i = randomChanges(); i > 0; --i) {
        std::vector<std::uint8_t> damaged = bytes;
        for (unsigned change = random() % 3 + 1; change > 0; --change)
            damaged[random() % damaged.size()] = std::uint8_t(random());
        judge(damaged);
    }
}
