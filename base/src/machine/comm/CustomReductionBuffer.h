#pragma once
#include <cstdint>

#include "machine/comm/Communicator.h"

namespace tolm {

// A buffer of user records for reductions with a user function: `count` records of
// `recordBytes` bytes each, carried as one contiguous datatype per record. The user function
// receives the wrapper's handle of that datatype.
class Communicator::CustomReductionBuffer {
  public:
    CustomReductionBuffer(void* data, std::uint64_t recordBytes, int count);
    ~CustomReductionBuffer();
    CustomReductionBuffer(const CustomReductionBuffer&) = delete;
    CustomReductionBuffer& operator=(const CustomReductionBuffer&) = delete;

    const BufferBase<int>& get() const { return _buffer; }
    // A committed contiguous datatype of `bytes` bytes, for `count` records.
    static int allocateContiguous(std::uint64_t bytes, int count);

  private:
    BufferBase<int> _buffer;
};

}  // namespace tolm
