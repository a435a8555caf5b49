#include "platform/Thread.h"

#include <pthread.h>

namespace tolm {
namespace {

Thread::UncaughtHandler& uncaughtHandler() {
    static Thread::UncaughtHandler handler;
    return handler;
}

}  // namespace

void Thread::setUncaughtExceptionHandler(UncaughtHandler handler) {
    uncaughtHandler() = std::move(handler);
}

Thread::Thread(std::string name) : _name(std::move(name)) {}

Thread::~Thread() {
    join();
}

void Thread::start(std::function<void()> body) {
    join();
    _thread = std::thread([body = std::move(body)] {
        try {
            body();
        } catch (...) {
            if (!uncaughtHandler())
                throw;
            uncaughtHandler()(std::current_exception());
        }
    });
    // Linux limits thread names to 15 characters; the name is only a debugging aid.
    ::pthread_setname_np(_thread.native_handle(), _name.substr(0, 15).c_str());
}

void Thread::join() {
    if (_thread.joinable() && _thread.get_id() != std::this_thread::get_id())
        _thread.join();
}

}  // namespace tolm
