#include "platform/IOStreamWrapper.h"

namespace tolm {

IOStreamWrapper::~IOStreamWrapper() = default;

bool IOStreamWrapper::good() const {
    return _ios->good();
}

bool IOStreamWrapper::bad() const {
    return _ios->bad();
}

bool IOStreamWrapper::eof() const {
    return _ios->eof();
}

bool IOStreamWrapper::fail() const {
    return _ios->fail();
}

void IOStreamWrapper::setBroadcastFlag(const bool&) {}

}  // namespace tolm
