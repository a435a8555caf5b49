#pragma once
#include <exception>
#include <string>

#include "neo/Properties.h"

namespace tolm {

// The failures of this system are exceptions of this family:
//   Error               a failure with a severity; commands report it in their response.
//   InternalError       a broken precondition or impossible state (see TOLM_ASSERT).
//   NonRecoverableError a failure that must end the job.
// An error is also a record: `properties()` holds its type, message, severity and, where one
// was taken, its stack trace, under the tags below, so that it can travel in a response.
class Error : public std::exception {
  public:
    static constexpr const char* ERROR_TAG = "error";  // the error's type name
    static constexpr const char* MESSAGE_TAG = "message";
    static constexpr const char* SEVERITY_TAG = "severity";
    static constexpr const char* STACK_TRACE_TAG = "stackTrace";  // array of frame texts
    static constexpr const char* DEFAULT_TYPE = "Error";

    Error(const std::string& message, int severity, Properties properties = {},
          const std::string& type = DEFAULT_TYPE);

    const char* what() const noexcept override { return _message.c_str(); }
    const std::string& getMessage() const { return _message; }
    int getSeverity() const;
    std::string getType() const;
    const Properties& properties() const { return _properties; }

    // A collective error is raised on every process at once and handled by all together.
    bool isCollective() const { return _collective; }
    void setCollective(bool collective) { _collective = collective; }

    // Copies the error's record, less its stack trace, into a response.
    void writeTo(Properties& response) const;
    // Records the calling thread's stack under STACK_TRACE_TAG.
    void captureStackTrace();

    static bool isErrorIn(const Properties& response) { return response.has(ERROR_TAG); }
    // The message of the error carried by `response`, or "" when it carries none.
    static std::string getMessage(const Properties& response);

  private:
    std::string _message;
    Properties _properties;
    bool _collective = false;
};

}  // namespace tolm
