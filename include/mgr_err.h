#pragma once

#include <exception>
#include <string>

#include "brisq_export.h"

/// Errors of the framework: everything that fails, fails by an exception of this family.
namespace mgr_err {

/// One failure as data: what kind it is, which thing it is about, and what the rule or the cause
/// was.
///
/// Types in use: "value" (input that a rule forbids), "usage" (a command that can't be read),
/// "config" (the configuration file), "missed" (nothing has this name), "exists", "locked",
/// "limit", "access" (the session lacks a right), "file" (the system refused a file operation),
/// "email" (the mail server's side failed), "db", "plugin", "later" (try again), "doubt" (done, but
/// may be lost) and "internal".
///
/// The text of what() is made once from the three parts, as "TYPE: OBJECT: VALUE" with empty parts
/// left out and NUL as "\x00". No part may be a secret: the text goes to logs and terminals.
///
/// A value type: copies are independent, no thread rule beyond that of any value.
class BRISQ_API Error : public std::exception {
 public:
  explicit Error(std::string type, std::string object = {}, std::string value = {});
  Error(const Error&);
  Error& operator=(const Error&);
  ~Error() override;

  const std::string& type() const noexcept { return type_; }
  /// Names the thing that the error is about; may be empty.
  const std::string& object() const noexcept { return object_; }
  /// The offending value, the broken rule or the cause; may be empty.
  const std::string& value() const noexcept { return value_; }

  const char* what() const noexcept override { return text_.c_str(); }

  /// Marks the error as meant for the user who made the request, not only for the log.
  Error& set_report() noexcept;
  bool report() const noexcept { return report_; }

 private:
  std::string type_;
  std::string object_;
  std::string value_;
  std::string text_;
  bool report_ = false;
};

}  // namespace mgr_err
