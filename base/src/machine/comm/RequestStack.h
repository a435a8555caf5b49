#pragma once
#include <vector>

#include "machine/comm/MpiCore.h"

namespace tolm {

// Owner of non-blocking request handles. A non-blocking call writes its request into the slot
// `push_back` returns; `wait`, `test` and their kin complete them. A stack must be empty
// (waited, tested to completion, freed or cancelled) when it is copied; one destroyed with
// requests left warns and frees them without waiting.
class MpiCore::RequestStack {
  public:
    RequestStack() = default;
    // Takes over `request` and sets the caller's variable to the null request.
    explicit RequestStack(int& request);
    RequestStack(const RequestStack& other);
    RequestStack& operator=(const RequestStack& other);
    virtual ~RequestStack();

    int* push_back();
    int pop();
    std::size_t size() const { return _requests.size(); }
    bool empty() const { return _requests.empty(); }

    // Completes every request. Completed requests leave the stack; persistent ones stay, to be
    // started again.
    void wait();
    // As wait(), and the source rank of each completed request, in stack order.
    void wait(std::vector<unsigned int>& sources);
    void waitAny(unsigned int& index);
    bool test();
    bool testAny(unsigned int& index);
    void cancel();
    void cancelNoWait();
    void free();

    virtual void clear();
    virtual void remove(const unsigned int& i);

  protected:
    void checkCopyable(const RequestStack& other) const;
    void dropCompleted();
    int count() const { return static_cast<int>(_requests.size()); }

    std::vector<int> _requests;
};

}  // namespace tolm
