#include "neo/SingletonCleaner.h"

#include <vector>

namespace tolm {
namespace {

std::vector<std::function<void()>>& cleanUps() {
    static std::vector<std::function<void()>> functions;
    return functions;
}

}  // namespace

void SingletonCleaner::registerCleanUp(std::function<void()> cleanUp) {
    cleanUps().push_back(std::move(cleanUp));
}

void SingletonCleaner::reset() {
    // A clean-up may register another: take the list first.
    auto functions = std::move(cleanUps());
    cleanUps().clear();
    for (auto it = functions.rbegin(); it != functions.rend(); ++it)
        (*it)();
}

}  // namespace tolm
