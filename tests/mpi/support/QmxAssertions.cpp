#include "support/QmxAssertions.h"

namespace tolm::mpitest {

std::string qmxErrorText(int code) {
    char text[QMX_MPI_MAX_ERROR_STRING];
    int length = 0;
    if (QMX_MPI_Error_string(code, text, &length) != QMX_MPI_SUCCESS) {
        return "(no text for code " + std::to_string(code) + ")";
    }
    return std::string(text, static_cast<std::size_t>(length));
}

int qmxErrorClass(int code) {
    int errorClass = -1;
    QMX_MPI_Error_class(code, &errorClass);
    return errorClass;
}

testing::AssertionResult qmxSucceeded(const char* expression, int code) {
    if (code == QMX_MPI_SUCCESS) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << expression << " returned " << code << " (class "
                                       << qmxErrorClass(code) << "): " << qmxErrorText(code);
}

}  // namespace tolm::mpitest
