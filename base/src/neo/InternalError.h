#pragma once
#include <string>

#include "neo/Error.h"

namespace tolm {

// A broken precondition or an impossible state. Carries the failed condition as written in
// the source, and the file and line of the check.
class InternalError : public Error {
  public:
    static constexpr const char* TYPE = "InternalError";
    static constexpr const char* CONDITION_TAG = "condition";
    static constexpr const char* FILE_TAG = "file";
    static constexpr const char* LINE_TAG = "line";

    InternalError(const std::string& message, const std::string& condition, const char* file,
                  int line);

    std::string getCondition() const { return properties().get<std::string>(CONDITION_TAG); }
    std::string getFile() const { return properties().get<std::string>(FILE_TAG); }
    int getLine() const { return properties().get<int>(LINE_TAG); }
};

}  // namespace tolm

// Throws InternalError(message, "<condition as written>", file, line) when `condition` is
// false. `message` is evaluated only on failure.
#define TOLM_ASSERT(condition, message)                                             \
    do {                                                                            \
        if (!(condition))                                                           \
            throw ::tolm::InternalError((message), #condition, __FILE__, __LINE__); \
    } while (false)
