#include <algorithm>
#include <chrono>
#include <thread>

#include "machine/comm/Communicator.h"
#include "machine/comm/RequestStack.h"
#include "machine/monitor/Timer.h"

namespace tolm {
namespace {

constexpr int barrierTag = 1022;

// Each level of the tree may sleep one period before it notices its message, so a barrier
// over many ranks sleeps in shorter periods.
std::chrono::milliseconds sleepPeriod(const Communicator& comm) {
    return std::chrono::milliseconds(comm.size() > 512 ? 1 : 10);
}

// Polls until the requests complete: for the first spinTime seconds of the timer's interval
// busily, yielding the processor between polls (a rank that shares its core with the one it
// waits for lets that one run), then with a sleep after each poll.
void pollThenWait(Communicator& comm, MpiCore::RequestStack& requests, const Timer& timer,
                  double spinTime) {
    while (!comm.test(requests)) {
        if (timer.getWallTime() > spinTime)
            std::this_thread::sleep_for(sleepPeriod(comm));
        else
            std::this_thread::yield();
    }
    comm.wait(requests);
}

}  // namespace

// Ranks form a binary tree (parent (rank - 1) / 2, children 2 rank + 1 and 2 rank + 2): each
// rank hears from its children, tells its parent and waits for its parent's word, then
// passes the word on to its children. All messages are empty.
void Communicator::noSpinSynchronise(double spinTime) {
    const Tag tag(barrierTag);
    char nothing = 0;
    const BufferBase<int> empty{&nothing, 0, QMX_MPI_BYTE, 1};
    const unsigned int firstChild = 2 * _myRank + 1;
    const unsigned int endOfChildren = std::min(firstChild + 2, _size);

    MpiCore::RequestStack fromChildren;
    for (unsigned int child = firstChild; child < endOfChildren; ++child)
        iRecvBuffer(empty, child, tag, fromChildren);
    Timer timer(this);
    timer.startWallTimer();
    pollThenWait(*this, fromChildren, timer, spinTime);

    if (_myRank > 0) {
        const unsigned int parent = (_myRank - 1) / 2;
        MpiCore::RequestStack toParent;
        MpiCore::RequestStack fromParent;
        iSendBuffer(empty, parent, tag, toParent);
        timer.startWallTimer();  // restarts the interval: the spin time counts anew
        iRecvBuffer(empty, parent, tag, fromParent);
        pollThenWait(*this, fromParent, timer, spinTime);
        wait(toParent);
    }

    MpiCore::RequestStack toChildren;
    for (unsigned int child = firstChild; child < endOfChildren; ++child)
        iSendBuffer(empty, child, tag, toChildren);
    wait(toChildren);
}

}  // namespace tolm
