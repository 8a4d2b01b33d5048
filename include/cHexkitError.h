// The exception in which every failure reaches the host: a message text and
// a severity. The host catches it by type.
#pragma once

#include <exception>
#include <string>

namespace Kv::Orv::Hexkit {

class cHexkitErrorIF {
 public:
  enum Severity_Type {
    eSeverityNone = 0,
    eSeverityRecoverable = 1,  // recoverable problems were found; the result is usable
    eSeverityError = 2,        // the operation failed
  };

  virtual ~cHexkitErrorIF() = default;
  virtual const char* GetMessage() const = 0;
  virtual Severity_Type GetSeverity() const = 0;
};

class cHexkitError : public cHexkitErrorIF, public std::exception {
 public:
  cHexkitError(std::string message, Severity_Type severity) : message_(std::move(message)), severity_(severity) {}

  const char* GetMessage() const override { return message_.c_str(); }
  Severity_Type GetSeverity() const override { return severity_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
  Severity_Type severity_;
};

// Throws the error in which failures reach the host; severity 2 unless said.
[[noreturn]] inline void throwHexkitError(const std::string& message,
                                          cHexkitErrorIF::Severity_Type severity = cHexkitErrorIF::eSeverityError) {
  throw cHexkitError(message, severity);
}

}  // namespace Kv::Orv::Hexkit
