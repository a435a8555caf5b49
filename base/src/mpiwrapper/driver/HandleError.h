// Raised inside a driver function when an argument cannot be translated (a handle that does
// not name a live object, a special value out of range); CallGuard turns it into the code.
#pragma once

namespace tolm::mpidriver {

struct HandleError {
    int code;  // a QMX error class
};

}  // namespace tolm::mpidriver
