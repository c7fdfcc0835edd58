#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>

#include <nbx/object/serializationmanager.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// What arrays may hold: `std::vector<bool>` has no elements in memory to point to, so a sequence of truth
/// values is one of `std::uint8_t`.
template <class T>
concept ArrayElement = !std::is_same_v<T, bool>;

/// Abstract sequence of `size()` elements. Most interfaces pass and return sequences in this form, so
/// that an array, a constant, a sub-range or a computed sequence can stand behind it.
template <class T> class Iterator : public SharedObj {
    NBX_TEMPLATE_CLASS(Iterator, SharedObj)
public:
    /// Plain random-access iterator over the values; valid as long as the sequence is.
    class STLIterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T *;
        using reference = T;

        STLIterator() = default;
        STLIterator(const Iterator * sequence, unsigned index) : sequence_(sequence), index_(index) {}
        T operator*() const { return sequence_->get(index_); }
        STLIterator & operator++() {
            ++index_;
            return *this;
        }
        STLIterator operator++(int) {
            const STLIterator before = *this;
            ++index_;
            return before;
        }
        difference_type operator-(const STLIterator & other) const {
            return static_cast<difference_type>(index_) - static_cast<difference_type>(other.index_);
        }
        bool operator==(const STLIterator & other) const { return index_ == other.index_; }

    private:
        const Iterator * sequence_ = nullptr;
        unsigned index_ = 0;
    };

    virtual unsigned size() const = 0;
    /// Element `i`, which must be less than `size()`.
    virtual T get(unsigned i) const = 0;
    /// The first of the elements where they lie one behind the other in memory, else null.
    virtual const T * pointer() const { return nullptr; }
    /// The object that owns the elements; null for a computed sequence.
    virtual const SharedObj * container() const { return nullptr; }

    bool isEmpty() const { return size() == 0; }
    T operator[](unsigned i) const { return get(i); }
    STLIterator beginSTL() const { return STLIterator(this, 0); }
    STLIterator endSTL() const { return STLIterator(this, size()); }
    STLIterator begin() const { return beginSTL(); }
    STLIterator end() const { return endSTL(); }
};

} // namespace NBX
