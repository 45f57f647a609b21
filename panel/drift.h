#pragma once

#include <functional>
#include <string>
#include <vector>

#include "panel/findings.h"

namespace brisq_panel {

/// A finding, with what ends it when that needs no choice.
struct Drift {
  Finding finding;
  /// Queues jobs of the current request, or works at once where mgr_file does; empty when somebody
  /// must choose.
  std::function<void()> mend = {};
};

/// What an area has found so far.
class Drifts {
 public:
  void Error(const char* code, const std::string& object, const std::string& text,
             const std::string& fix, std::function<void()> mend = {}) {
    Add(code, Severity::kError, object, text, fix, std::move(mend));
  }
  void Warning(const char* code, const std::string& object, const std::string& text,
               const std::string& fix, std::function<void()> mend = {}) {
    Add(code, Severity::kWarning, object, text, fix, std::move(mend));
  }
  void Add(Drift drift) { drifts_.push_back(std::move(drift)); }

  std::vector<Drift>& all() { return drifts_; }

 private:
  void Add(const char* code, Severity severity, const std::string& object, const std::string& text,
           const std::string& fix, std::function<void()> mend) {
    drifts_.push_back({{code, severity, object, text, fix}, std::move(mend)});
  }

  std::vector<Drift> drifts_;
};

}  // namespace brisq_panel
