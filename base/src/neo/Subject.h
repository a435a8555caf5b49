#pragma once
#include <algorithm>
#include <array>
#include <functional>
#include <vector>

namespace tolm {

template <typename... Args>
class TypedObserver {
  public:
    virtual ~TypedObserver() = default;
    virtual void update(Args... args) = 0;
};

// A list of observers told of an event with the payload `Args...`. Observers are told in the
// order they attached; an observer may attach or detach others (or itself) while being told,
// because notification walks a copy of the list. Not thread-safe: one thread owns a subject.
template <typename... Args>
class TypedSubject {
  public:
    using Observer = TypedObserver<Args...>;

    void attach(Observer& observer) {
        if (!isAttached(observer))
            _observers.push_back(&observer);
    }
    void detach(Observer& observer) { std::erase(_observers, &observer); }
    bool isAttached(const Observer& observer) const {
        return std::find(_observers.begin(), _observers.end(), &observer) != _observers.end();
    }
    std::size_t size() const { return _observers.size(); }

    void notify(Args... args) const {
        // Subjects told on every command have one or two observers: copy those onto the stack.
        if (_observers.size() <= fewObservers) {
            std::array<Observer*, fewObservers> observers{};
            std::copy(_observers.begin(), _observers.end(), observers.begin());
            tell(observers.begin(), observers.begin() + _observers.size(), args...);
        } else {
            const auto observers = _observers;
            tell(observers.begin(), observers.end(), args...);
        }
    }

  private:
    static constexpr std::size_t fewObservers = 4;

    template <typename Iterator>
    void tell(Iterator first, Iterator last, Args... args) const {
        for (; first != last; ++first) {
            if (isAttached(**first))
                (*first)->update(args...);
        }
    }

    std::vector<Observer*> _observers;
};

// An observer that forwards to a function, for callers that need no class of their own.
template <typename... Args>
class FunctionObserver : public TypedObserver<Args...> {
  public:
    explicit FunctionObserver(std::function<void(Args...)> function)
        : _function(std::move(function)) {}
    void update(Args... args) override { _function(args...); }

  private:
    std::function<void(Args...)> _function;
};

using Subject = TypedSubject<>;
using Observer = TypedObserver<>;

}  // namespace tolm
