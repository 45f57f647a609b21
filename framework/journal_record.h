#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"

/// What a request writes down before it changes something that the database's transaction does not
/// cover, so that a later process can take it back or bring it to its end.
namespace journal {

/// One record: a kind, and values by name. Names and kinds are single words; values hold any bytes.
struct BRISQ_API Step {
  std::string kind;
  std::map<std::string, std::string> values;

  /// A value; empty when the step has none of this name.
  const std::string& Value(const std::string& name) const;
  bool operator==(const Step&) const = default;
};

/// A step as one line of text: KIND NAME=VALUE ..., bytes of values that are blank, "%", "=" or no
/// printable ASCII as "%" and two hexadecimal digits. Without checksum and end of line.
BRISQ_API std::string Text(const Step& step);
/// The step that Text has made.
BRISQ_API Step FromText(std::string_view text);

/// A step as it stands in a file: its text behind a checksum of it, with a line feed.
BRISQ_API std::string Record(const Step& step);
/// The steps of a file's content, up to the first record that is torn or damaged: what follows was
/// never made durable, so what it announces never happened.
BRISQ_API std::vector<Step> FromRecords(std::string_view content);
/// Bytes of the content that FromRecords reads: behind them a torn record may stand.
BRISQ_API std::size_t WholeLength(std::string_view content);

}  // namespace journal
