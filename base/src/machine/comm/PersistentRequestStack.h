#pragma once
#include "machine/comm/RequestStack.h"

namespace tolm {

// Persistent requests (made by Communicator::recvInit): started again and again with
// `start`; they stay valid after completing, and are freed when cleared or removed.
class MpiCore::PersistentRequestStack : public MpiCore::RequestStack {
  public:
    PersistentRequestStack() = default;
    explicit PersistentRequestStack(int& request) : RequestStack(request) {}
    PersistentRequestStack(const PersistentRequestStack& other) = default;
    PersistentRequestStack& operator=(const PersistentRequestStack& other) = default;
    ~PersistentRequestStack() override;

    void start();
    void clear() override;
    void remove(const unsigned int& i) override;
};

}  // namespace tolm
