#pragma once
#include <string>

#include "neo/Error.h"

namespace tolm {

// A failure after which the job cannot go on: whoever catches it ends the job.
class NonRecoverableError : public Error {
  public:
    static constexpr const char* NON_RECOVERABLE_TAG = "nonRecoverable";

    explicit NonRecoverableError(const std::string& message, Properties properties = {},
                                 const std::string& type = DEFAULT_TYPE);

    static bool isNonRecoverableErrorIn(const Error& error);
    static bool isNonRecoverableErrorIn(const Properties& response);
};

}  // namespace tolm
