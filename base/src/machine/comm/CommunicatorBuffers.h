#pragma once
#include <cstdint>
#include <type_traits>

#include "mpiwrapper/qmx_mpi.h"

namespace tolm {

// The wrapper datatype of an element type. Arithmetic types map to their MPI types; any other
// trivially copyable type travels as raw bytes (see elementsOf).
template <typename T>
struct MpiDatatype {
    static constexpr bool isNative = false;
    static constexpr int value = QMX_MPI_BYTE;
};

#define TOLM_MPI_DATATYPE(Type, Handle)        \
    template <>                                \
    struct MpiDatatype<Type> {                 \
        static constexpr bool isNative = true; \
        static constexpr int value = Handle;   \
    }

TOLM_MPI_DATATYPE(char, QMX_MPI_CHAR);
TOLM_MPI_DATATYPE(signed char, QMX_MPI_SIGNED_CHAR);
TOLM_MPI_DATATYPE(unsigned char, QMX_MPI_UNSIGNED_CHAR);
TOLM_MPI_DATATYPE(short, QMX_MPI_SHORT);
TOLM_MPI_DATATYPE(unsigned short, QMX_MPI_UNSIGNED_SHORT);
TOLM_MPI_DATATYPE(int, QMX_MPI_INT);
TOLM_MPI_DATATYPE(unsigned int, QMX_MPI_UNSIGNED);
TOLM_MPI_DATATYPE(long, QMX_MPI_LONG);
TOLM_MPI_DATATYPE(unsigned long, QMX_MPI_UNSIGNED_LONG);
TOLM_MPI_DATATYPE(long long, QMX_MPI_LONG_LONG);
TOLM_MPI_DATATYPE(unsigned long long, QMX_MPI_UNSIGNED_LONG_LONG);
TOLM_MPI_DATATYPE(float, QMX_MPI_FLOAT);
TOLM_MPI_DATATYPE(double, QMX_MPI_DOUBLE);
TOLM_MPI_DATATYPE(long double, QMX_MPI_LONG_DOUBLE);
TOLM_MPI_DATATYPE(bool, QMX_MPI_C_BOOL);
TOLM_MPI_DATATYPE(wchar_t, QMX_MPI_WCHAR);
#undef TOLM_MPI_DATATYPE

// A non-owning view of a typed array: what an untyped operation sends or receives.
// SizeType is the count type: int for operations that pass counts to MPI as they are,
// unsigned int for those that may split a message too large for one call.
template <typename SizeType>
struct BufferBase {
    void* data;
    SizeType size;
    int type;
    unsigned int elementSize;

    std::uint64_t bytes() const { return std::uint64_t(size) * elementSize; }
};

template <typename SizeType>
struct ConstBufferBase {
    const void* data;
    SizeType size;
    int type;
    unsigned int elementSize;

    ConstBufferBase(const void* data_, SizeType size_, int type_, unsigned int elementSize_)
        : data(data_), size(size_), type(type_), elementSize(elementSize_) {}
    ConstBufferBase(const BufferBase<SizeType>& buffer)  // NOLINT: a view may be made const
        : ConstBufferBase(buffer.data, buffer.size, buffer.type, buffer.elementSize) {}

    std::uint64_t bytes() const { return std::uint64_t(size) * elementSize; }
};

// How many wrapper elements `count` values of T are: one each for native types, their bytes
// otherwise.
template <typename T>
constexpr std::uint64_t elementsOf(std::uint64_t count) {
    static_assert(std::is_trivially_copyable_v<T>, "only trivially copyable values travel");
    return MpiDatatype<T>::isNative ? count : count * sizeof(T);
}

template <typename T>
constexpr unsigned int elementSizeOf() {
    return MpiDatatype<T>::isNative ? sizeof(T) : 1u;
}

}  // namespace tolm
