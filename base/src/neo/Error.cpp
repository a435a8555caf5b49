#include "neo/Error.h"

#include "platform/Platform.h"
#include "platform/ProcessInfo.h"

namespace tolm {

Error::Error(const std::string& message, int severity, Properties properties,
             const std::string& type)
    : _message(message), _properties(std::move(properties)) {
    _properties.set(ERROR_TAG, type);
    _properties.set(MESSAGE_TAG, message);
    _properties.set(SEVERITY_TAG, severity);
}

int Error::getSeverity() const {
    return _properties.get<int>(SEVERITY_TAG);
}

std::string Error::getType() const {
    return _properties.get<std::string>(ERROR_TAG);
}

void Error::writeTo(Properties& response) const {
    // The stack trace stays out: it is for the log of the process that failed.
    for (const auto& item : _properties.value().items()) {
        if (item.key() != STACK_TRACE_TAG)
            response.value()[item.key()] = item.value();
    }
}

void Error::captureStackTrace() {
    // Skip this function and the constructor that called it.
    _properties.set(STACK_TRACE_TAG, Platform::process().backTrace(2));
}

std::string Error::getMessage(const Properties& response) {
    if (!isErrorIn(response))
        return {};
    return response.get<std::string>(MESSAGE_TAG, "");
}

}  // namespace tolm
