#include "machine/hybrid/WorkerThreadPolicy.h"

#include <utility>

#include "platform/Thread.h"

namespace tolm {

WorkerThreadPolicy::~WorkerThreadPolicy() {
    {
        std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _changed.notify_all();
    for (auto& worker : _workers)
        worker->join();
}

void WorkerThreadPolicy::run(const std::function<void(unsigned int thread)>& body) {
    if (_workers.empty())
        start();
    std::unique_lock lock(_mutex);
    _body = &body;
    _busy = getNumberThreads();
    _failure = nullptr;
    ++_step;
    _changed.notify_all();
    _changed.wait(lock, [this] { return _busy == 0; });
    _body = nullptr;
    if (_failure)
        std::rethrow_exception(std::exchange(_failure, nullptr));
}

void WorkerThreadPolicy::start() {
    for (unsigned int thread = 0; thread < getNumberThreads(); ++thread) {
        _workers.push_back(
            std::make_unique<Thread>(getConfiguration().threadName + std::to_string(thread)));
        _workers.back()->start([this, thread] { work(thread); });
    }
}

void WorkerThreadPolicy::work(unsigned int thread) {
    bindWorker(thread);
    unsigned long done = 0;
    std::unique_lock lock(_mutex);
    while (true) {
        _changed.wait(lock, [&] { return _stopping || _step != done; });
        if (_stopping)
            return;
        done = _step;
        const auto& body = *_body;
        lock.unlock();
        std::exception_ptr failure;
        try {
            body(thread);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        if (failure && !_failure)
            _failure = failure;
        if (--_busy == 0)
            _changed.notify_all();
    }
}

}  // namespace tolm
