#include "neo/NonRecoverableError.h"

namespace tolm {
namespace {

Properties markedNonRecoverable(Properties properties) {
    properties.set(NonRecoverableError::NON_RECOVERABLE_TAG, true);
    return properties;
}

}  // namespace

NonRecoverableError::NonRecoverableError(const std::string& message, Properties properties,
                                         const std::string& type)
    : Error(message, 3, markedNonRecoverable(std::move(properties)), type) {
    captureStackTrace();
}

bool NonRecoverableError::isNonRecoverableErrorIn(const Error& error) {
    return isNonRecoverableErrorIn(error.properties());
}

bool NonRecoverableError::isNonRecoverableErrorIn(const Properties& response) {
    return response.get<bool>(NON_RECOVERABLE_TAG, false);
}

}  // namespace tolm
