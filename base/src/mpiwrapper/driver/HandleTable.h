// Translation of the wrapper's integer handles of one kind of MPI object to native handles.
// A handle is an index into a vector of native handles: lookups are one bounds test and one
// load. Handles below firstUserHandle are fixed slots for the predefined objects; freed user
// slots go onto a free list and are handed out again, most recently freed first. A slot at a
// handle other than 0 holds the native null exactly when it is free, which is how stale
// handles are told from live ones.
#pragma once

#include <cstddef>
#include <vector>

#include "mpiwrapper/driver/HandleError.h"

namespace tolm::mpidriver {

template <class Native>
class HandleTable {
  public:
    HandleTable(Native null, int firstUserHandle, int invalidHandleError)
        : slots_(static_cast<std::size_t>(firstUserHandle), null),
          null_(null),
          firstUser_(firstUserHandle),
          error_(invalidHandleError) {}

    void setPredefined(int handle, Native native) {
        slots_[static_cast<std::size_t>(handle)] = native;
    }

    // The live object behind handle; the null handle 0 and stale handles are errors.
    Native get(int handle) const {
        if (!inRange(handle) || slots_[static_cast<std::size_t>(handle)] == null_) {
            throw HandleError{error_};
        }
        return slots_[static_cast<std::size_t>(handle)];
    }

    // As get, but the null handle 0 is allowed and gives the native null.
    Native getOrNull(int handle) const { return handle == 0 ? null_ : get(handle); }

    // The slot itself, for MPI calls that update a native handle in place (completion of a
    // request sets it to null). The null handle 0 is allowed; stale handles are errors.
    Native& slot(int handle) {
        if (handle != 0) {
            get(handle);
        }
        return slots_[static_cast<std::size_t>(handle)];
    }

    bool isPredefined(int handle) const { return handle >= 0 && handle < firstUser_; }

    // A new handle for native; the native null gives the null handle 0.
    int add(Native native) {
        if (native == null_) {
            return 0;
        }
        const int handle = reserve();
        slots_[static_cast<std::size_t>(handle)] = native;
        return handle;
    }

    // A handle whose slot an MPI call is about to fill; release it if the call fails.
    int reserve() {
        if (!free_.empty()) {
            const int handle = free_.back();
            free_.pop_back();
            return handle;
        }
        slots_.push_back(null_);
        return static_cast<int>(slots_.size() - 1);
    }

    void release(int handle) {
        if (isPredefined(handle) || !inRange(handle)) {
            return;
        }
        slots_[static_cast<std::size_t>(handle)] = null_;
        free_.push_back(handle);
    }

    // Keeps the slot when native is still a live object, else releases it; returns the handle
    // the caller should now hold (0 once released).
    int update(int handle, Native native) {
        if (handle == 0) {
            return 0;
        }
        if (native == null_) {
            release(handle);
            return 0;
        }
        slots_[static_cast<std::size_t>(handle)] = native;
        return handle;
    }

    // The handle of a live native object, or 0; a linear search, for rare reverse lookups.
    int find(Native native) const {
        for (std::size_t i = 1; i < slots_.size(); ++i) {
            if (slots_[i] == native && native != null_) {
                return static_cast<int>(i);
            }
        }
        return 0;
    }

    int invalidHandleError() const { return error_; }

  private:
    bool inRange(int handle) const {
        return static_cast<unsigned>(handle) < static_cast<unsigned>(slots_.size());
    }

    std::vector<Native> slots_;
    std::vector<int> free_;
    Native null_;
    int firstUser_;
    int error_;
};

}  // namespace tolm::mpidriver
