#include "machine/topology/AffinityMask.h"

#include <hwloc.h>

#include <algorithm>
#include <new>
#include <vector>

namespace tolm {

struct AffinityMask::Impl {
    explicit Impl(hwloc_const_bitmap_t source)
        : bitmap(source ? hwloc_bitmap_dup(source) : hwloc_bitmap_alloc()) {
        if (!bitmap)
            throw std::bad_alloc();
    }
    ~Impl() { hwloc_bitmap_free(bitmap); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    hwloc_bitmap_t bitmap;
};

namespace {

// One flag per LPU from 0 to the highest set LPU; empty for an empty set.
std::vector<bool> toFlags(hwloc_const_bitmap_t bitmap) {
    std::vector<bool> flags;
    const int last = hwloc_bitmap_last(bitmap);
    if (last < 0)
        return flags;
    flags.resize(static_cast<std::size_t>(last) + 1, false);
    for (int lpu = hwloc_bitmap_first(bitmap); lpu >= 0; lpu = hwloc_bitmap_next(bitmap, lpu))
        flags[static_cast<std::size_t>(lpu)] = true;
    return flags;
}

}  // namespace

AffinityMask::const_iterator& AffinityMask::const_iterator::operator++() {
    _lpu = hwloc_bitmap_next(_bitmap, _lpu);
    return *this;
}

AffinityMask::const_iterator AffinityMask::const_iterator::operator++(int) {
    const_iterator before = *this;
    ++*this;
    return before;
}

AffinityMask::AffinityMask() : _impl(std::make_unique<Impl>(nullptr)) {}

AffinityMask::AffinityMask(const hwloc_bitmap_s* bitmap) : _impl(std::make_unique<Impl>(bitmap)) {}

AffinityMask::AffinityMask(const AffinityMask& other)
    : _impl(std::make_unique<Impl>(other._impl->bitmap)) {}

AffinityMask::AffinityMask(AffinityMask&& other) noexcept = default;

AffinityMask& AffinityMask::operator=(const AffinityMask& other) {
    if (!_impl) {
        _impl = std::make_unique<Impl>(other._impl->bitmap);
    } else {
        hwloc_bitmap_copy(_impl->bitmap, other._impl->bitmap);
    }
    return *this;
}

AffinityMask& AffinityMask::operator=(AffinityMask&& other) noexcept {
    swap(other);
    return *this;
}

AffinityMask::~AffinityMask() = default;

bool AffinityMask::operator==(const AffinityMask& other) const {
    return hwloc_bitmap_isequal(_impl->bitmap, other._impl->bitmap);
}

AffinityMask AffinityMask::operator&(const AffinityMask& other) const {
    AffinityMask result(*this);
    return result &= other;
}

AffinityMask AffinityMask::operator|(const AffinityMask& other) const {
    AffinityMask result(*this);
    return result |= other;
}

AffinityMask AffinityMask::operator^(const AffinityMask& other) const {
    AffinityMask result(*this);
    return result ^= other;
}

AffinityMask& AffinityMask::operator&=(const AffinityMask& other) {
    hwloc_bitmap_and(_impl->bitmap, _impl->bitmap, other._impl->bitmap);
    return *this;
}

AffinityMask& AffinityMask::operator|=(const AffinityMask& other) {
    hwloc_bitmap_or(_impl->bitmap, _impl->bitmap, other._impl->bitmap);
    return *this;
}

AffinityMask& AffinityMask::operator^=(const AffinityMask& other) {
    hwloc_bitmap_xor(_impl->bitmap, _impl->bitmap, other._impl->bitmap);
    return *this;
}

void AffinityMask::clear() {
    hwloc_bitmap_zero(_impl->bitmap);
}

bool AffinityMask::empty() const {
    return hwloc_bitmap_iszero(_impl->bitmap);
}

bool AffinityMask::intersectsWith(const AffinityMask& other) const {
    return hwloc_bitmap_intersects(_impl->bitmap, other._impl->bitmap);
}

bool AffinityMask::isIncludedIn(const AffinityMask& other) const {
    return hwloc_bitmap_isincluded(_impl->bitmap, other._impl->bitmap);
}

void AffinityMask::swap(AffinityMask& other) noexcept {
    _impl.swap(other._impl);
}

AffinityMask& AffinityMask::set(unsigned lpu) {
    hwloc_bitmap_set(_impl->bitmap, lpu);
    return *this;
}

AffinityMask& AffinityMask::unset(unsigned lpu) {
    hwloc_bitmap_clr(_impl->bitmap, lpu);
    return *this;
}

bool AffinityMask::isSet(unsigned lpu) const {
    return hwloc_bitmap_isset(_impl->bitmap, lpu);
}

unsigned AffinityMask::count() const {
    return static_cast<unsigned>(std::max(0, hwloc_bitmap_weight(_impl->bitmap)));
}

AffinityMask::const_iterator AffinityMask::begin() const {
    return {_impl->bitmap, hwloc_bitmap_first(_impl->bitmap)};
}

std::string AffinityMask::toBinaryString(unsigned width) const {
    std::vector<bool> flags = toFlags(_impl->bitmap);
    flags.resize(std::max<std::size_t>(flags.size(), std::max(width, 1u)), false);
    std::string text = "0b";
    text.reserve(2 + flags.size());
    for (auto flag = flags.rbegin(); flag != flags.rend(); ++flag)
        text += *flag ? '1' : '0';
    return text;
}

std::string AffinityMask::toHexString(unsigned width) const {
    std::vector<bool> flags = toFlags(_impl->bitmap);
    const std::size_t digits = std::max<std::size_t>((flags.size() + 3) / 4, std::max(width, 1u));
    flags.resize(4 * digits, false);
    std::string text = "0x";
    text.reserve(2 + digits);
    for (std::size_t digit = digits; digit-- > 0;) {
        unsigned value = 0;
        for (unsigned bit = 0; bit < 4; ++bit)
            if (flags[4 * digit + bit])
                value |= 1u << bit;
        text += "0123456789abcdef"[value];
    }
    return text;
}

hwloc_bitmap_s* AffinityMask::getHwlocMask() {
    return _impl->bitmap;
}

const hwloc_bitmap_s* AffinityMask::getHwlocMask() const {
    return _impl->bitmap;
}

}  // namespace tolm
