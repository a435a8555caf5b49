#pragma once
#include <functional>

namespace tolm {

// Destroys registered singletons at the end of a run, newest first, so that a singleton
// made during a run does not outlive the services it uses.
class SingletonCleaner {
  public:
    static void registerCleanUp(std::function<void()> cleanUp);
    static void reset();
};

}  // namespace tolm
