#pragma once

#include <string>

#include "brisq_export.h"
#include "mgr_db.h"

/// Single values that the panel keeps from one run to the next.
namespace brisq_panel {

/// The table of them: one row for each name.
class BRISQ_API PanelState : public mgr_db::CustomTable {
 public:
  PanelState();

  mgr_db::IntField id;
  mgr_db::StringField name;  ///< unique
  mgr_db::StringField value;

  std::string Schema() const override;
};

/// When used space was last got, in UTC; empty when never.
constexpr const char* kFiguresAsOf = "figures-as-of";
/// Why the last refresh got no used space; empty when it did.
constexpr const char* kQuotaProblem = "quota-problem";
/// When password work was last begun, in milliseconds since 1970; empty when never.
constexpr const char* kPasswordRunMs = "password-run-ms";

/// A kept value; empty when there is none.
BRISQ_API std::string KeptValue(const std::string& name);
/// Keeps it from now on, in place of what was kept by this name; in the transaction that is open on
/// this thread.
BRISQ_API void KeepValue(const std::string& name, const std::string& value);

}  // namespace brisq_panel
