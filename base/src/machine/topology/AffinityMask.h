#pragma once
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>

struct hwloc_bitmap_s;

namespace tolm {

// A set of logical processing units (LPUs), each named by the operating system's processor
// index: bit i set means LPU i is in the set. The set has no fixed width. It owns one hwloc
// bitmap (deep-copied on copy, handed over on move); hwloc itself stays out of this header.
//
// Errors: no operation reports one. A failed allocation throws std::bad_alloc. A moved-from
// mask may only be assigned to or destroyed.
class AffinityMask {
  public:
    // Forward iterator over the LPUs of the set, in increasing order.
    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = unsigned;
        using difference_type = std::ptrdiff_t;
        using pointer = const unsigned*;
        using reference = unsigned;

        const_iterator() = default;
        unsigned operator*() const { return static_cast<unsigned>(_lpu); }
        const_iterator& operator++();
        const_iterator operator++(int);
        bool operator==(const const_iterator& other) const { return _lpu == other._lpu; }

      private:
        friend class AffinityMask;
        const_iterator(const hwloc_bitmap_s* bitmap, int lpu) : _bitmap(bitmap), _lpu(lpu) {}

        const hwloc_bitmap_s* _bitmap = nullptr;
        int _lpu = -1;  // -1: past the last set LPU
    };

    AffinityMask();
    AffinityMask(const AffinityMask& other);
    AffinityMask(AffinityMask&& other) noexcept;
    AffinityMask& operator=(const AffinityMask& other);
    AffinityMask& operator=(AffinityMask&& other) noexcept;
    ~AffinityMask();

    bool operator==(const AffinityMask& other) const;
    bool operator!=(const AffinityMask& other) const { return !(*this == other); }

    AffinityMask operator&(const AffinityMask& other) const;
    AffinityMask operator|(const AffinityMask& other) const;
    AffinityMask operator^(const AffinityMask& other) const;
    AffinityMask& operator&=(const AffinityMask& other);
    AffinityMask& operator|=(const AffinityMask& other);
    AffinityMask& operator^=(const AffinityMask& other);

    void clear();
    bool empty() const;
    bool intersectsWith(const AffinityMask& other) const;
    // An empty mask is included in every mask.
    bool isIncludedIn(const AffinityMask& other) const;
    void swap(AffinityMask& other) noexcept;

    // Single LPUs.
    AffinityMask& set(unsigned lpu);
    AffinityMask& unset(unsigned lpu);
    bool isSet(unsigned lpu) const;
    unsigned count() const;

    const_iterator begin() const;
    const_iterator end() const { return {}; }

    // "0b" then the LPU flags, highest LPU first, at least `width` digits (0 counts as 1).
    // {0, 2} with width 8 gives "0b00000101".
    std::string toBinaryString(unsigned width) const;
    // "0x" then lower-case hexadecimal digits, LPU 0 in the lowest bit of the last digit, at
    // least `width` digits (0 counts as 1). {0, 5} with width 4 gives "0x0021".
    std::string toHexString(unsigned width) const;

  private:
    friend class CpuTopology;
    friend class Affinity;
    struct Impl;

    // A copy of `bitmap` (an object's cpuset, a binding read back from hwloc).
    explicit AffinityMask(const hwloc_bitmap_s* bitmap);
    hwloc_bitmap_s* getHwlocMask();
    const hwloc_bitmap_s* getHwlocMask() const;

    std::unique_ptr<Impl> _impl;
};

}  // namespace tolm
