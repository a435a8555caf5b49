#pragma once
// The halving of file transfers too large for one MPI call; used by ParallelFile.
#include <cstdint>
#include <type_traits>

namespace tolm::detail {

// Transfers `count` elements of `elementSize` bytes between `data` and the file at byte
// `offset`, as pieces that each pass `fits(count)`: a transfer that does not fit is split into
// its first floor(count/2) elements and the rest, which start floor(count/2) x elementSize
// bytes further on in memory and in the file, and each half is split again until it fits. A
// single element cannot be split and goes in one piece. The pieces reach `transfer(offset,
// data, count)` in file order. Returns the first non-zero code a piece returned; with
// `stopAtFailure` nothing after that piece is transferred.
template <typename Byte, typename Fits, typename Transfer>
int transferInHalves(std::int64_t offset, Byte* data, unsigned int count, unsigned int elementSize,
                     const Fits& fits, const Transfer& transfer, bool stopAtFailure) {
    static_assert(sizeof(Byte) == 1, "data is addressed in bytes");
    if (count <= 1 || fits(count))
        return transfer(offset, data, count);
    const unsigned int first = count / 2;
    const std::uint64_t firstBytes = std::uint64_t(first) * elementSize;
    const int code =
        transferInHalves(offset, data, first, elementSize, fits, transfer, stopAtFailure);
    if (code != 0 && stopAtFailure)
        return code;
    const int rest = transferInHalves(offset + std::int64_t(firstBytes), data + firstBytes,
                                      count - first, elementSize, fits, transfer, stopAtFailure);
    return code != 0 ? code : rest;
}

}  // namespace tolm::detail
