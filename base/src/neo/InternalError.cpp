#include "neo/InternalError.h"

namespace tolm {
namespace {

Properties locationOf(const std::string& condition, const char* file, int line) {
    Properties location;
    location.set(InternalError::CONDITION_TAG, condition);
    location.set(InternalError::FILE_TAG, std::string(file));
    location.set(InternalError::LINE_TAG, line);
    return location;
}

}  // namespace

InternalError::InternalError(const std::string& message, const std::string& condition,
                             const char* file, int line)
    : Error(message, 2, locationOf(condition, file, line), TYPE) {
    captureStackTrace();
}

}  // namespace tolm
