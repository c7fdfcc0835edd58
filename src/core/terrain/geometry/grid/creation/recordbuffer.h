#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <nbx/object/exception.h>

namespace ZMT::CORE::GRID {

/// Numbers, records and texts, one behind the other.
class RecordWriter {
public:
    template <class T> void put(const T & record) {
        static_assert(std::is_trivially_copyable_v<T>);
        const char * const first = reinterpret_cast<const char *>(&record);
        bytes_.insert(bytes_.end(), first, first + sizeof record);
    }
    void putText(const std::string & text) {
        put(static_cast<std::uint32_t>(text.size()));
        bytes_.insert(bytes_.end(), text.begin(), text.end());
    }
    const std::vector<char> & bytes() const { return bytes_; }

private:
    std::vector<char> bytes_;
};

/// Takes them out again. Throws `NBX::IOException` where the bytes end before.
class RecordReader {
public:
    explicit RecordReader(const std::vector<char> & bytes) : bytes_(bytes) {}

    template <class T> T get() {
        static_assert(std::is_trivially_copyable_v<T>);
        need(sizeof(T));
        T record;
        std::memcpy(&record, bytes_.data() + at_, sizeof record);
        at_ += sizeof record;
        return record;
    }
    std::string getText() {
        const auto size = get<std::uint32_t>();
        need(size);
        at_ += size;
        return {bytes_.data() + at_ - size, size};
    }
    std::size_t left() const { return bytes_.size() - at_; }

private:
    void need(std::size_t bytes) const {
        if (bytes > left()) throw NBX::IOException(L"a record ends too early");
    }

    const std::vector<char> & bytes_;
    std::size_t at_ = 0;
};

} // namespace ZMT::CORE::GRID
