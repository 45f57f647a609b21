#include "panel/passwd_lines.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "conf_dataset.h"
#include "framework/conf_document.h"
#include "framework/conf_line.h"
#include "panel/short_lines.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 9;
constexpr const char* kBlanks = " \t";

// Findings of one line, with the line for those who look at its text.
struct Found {
  Line line;
  Finding finding;
};

ConfDocument Parse(std::string_view content) {
  return {std::make_shared<ConfBytes>(content), *UnixConfParams()};
}

std::string At(const std::string& path, std::size_t number) {
  return path + ", line " + std::to_string(number);
}

bool AllDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

bool IsZero(std::string_view digits) {
  return digits.find_first_not_of('0') == std::string_view::npos;
}

// True when one of the words of the text, parted by blanks, is `word` or gives it a value.
bool HasWord(std::string_view text, std::string_view word) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
    const std::string_view one = text.substr(0, end);
    if (one.substr(0, one.find('=')) == word) return true;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

/// The checks of the lines of one document.
class LineChecks {
 public:
  LineChecks(const std::string& path, const ConfDocument& document,
             const std::vector<std::string>* active = nullptr)
      : path_(path), document_(document), in_words_(active == nullptr) {
    if (active != nullptr) {
      active_.insert(active->begin(), active->end());
    }
  }

  std::vector<Found> All() {
    for (line_ = document_.NextLine(0); line_ != ConfDocument::kNone;
         line_ = document_.NextLine(line_ + 1)) {
      lines_.push_back(line_);
      name_ = document_.Name(line_);
      if (!name_.empty()) CheckLine();
    }
    return std::move(found_);
  }

 private:
  std::string_view Column(unsigned long column) const {
    return conf_line::Column(document_.Text(line_), ':', kColumns, column);
  }

  void Add(const char* code, Severity severity, std::string text, const std::string& by_hand) {
    found_.push_back(
        {line_, {code, severity, At(path_, lines_.size()), std::move(text), Fix(code, by_hand)}});
  }

  // What ends a finding of a line that the panel writes itself; empty when nothing of its does.
  std::string Command(std::string_view code) const {
    if (code == "PASSWD-ROOT" || code == "PASSWD-ID" || code == "PASSWD-HOME") return "brisq sync";
    const std::string passwd = "brisq mailbox passwd " + Name() + " --generate";
    if (code == "PASSWD-OPEN") return passwd;
    return code == "PASSWD-NO-HASH" ? passwd + ", or brisq sync --generate" : "";
  }

  std::string Fix(std::string_view code, const std::string& by_hand) const {
    if (in_words_) return by_hand;
    const std::string edit = "brisq passwd-file edit: " + by_hand;
    if (active_.count(name_) == 0) return edit;
    if (code == "PASSWD-SHORT") return edit + "; then brisq sync";
    const bool is_its_line = document_.FindRecord(name_, kColumns) == line_;
    const std::string command = is_its_line ? Command(code) : "";
    return command.empty() ? edit : command;
  }
  void Error(const char* code, std::string text, std::string fix) {
    Add(code, Severity::kError, std::move(text), std::move(fix));
  }
  void Warning(const char* code, std::string text, std::string fix) {
    Add(code, Severity::kWarning, std::move(text), std::move(fix));
  }

  void CheckLine() {
    CheckBytes();
    CheckName();
    CheckDuplicate();
    CheckHash();
    if (!document_.IsRecord(line_, kColumns)) return AddShort();
    CheckId("uid", 3);
    CheckId("gid", 4);
    CheckHome();
    CheckExtraFields();
  }

  void CheckBytes() {
    try {
      RefuseControl("line", document_.Text(line_));
    } catch (const mgr_err::Error& error) {
      Error("PASSWD-BYTES", error.value(), "write the line anew");
    }
  }

  void CheckName() {
    // Dovecot brings what a client gives into lower case before it looks.
    if (std::any_of(name_.begin(), name_.end(), IsUpper)) {
      Warning("PASSWD-NAME", Name() + " has capital letters, but Dovecot looks for small ones",
              "write the name in small letters");
    } else if (name_.find_first_of(kBlanks) != std::string_view::npos) {
      Warning("PASSWD-NAME", "the name \"" + Name() + "\" has a blank, which no login can have",
              "take the blank out");
    }
  }

  void CheckDuplicate() {
    const std::vector<Line> same = document_.AllNamed(name_);
    if (same.front() == line_) return;
    const std::string first = std::to_string(NumberOf(same.front()));
    Error("PASSWD-DUPLICATE",
          Name() + " appears in lines " + first + " and " + std::to_string(lines_.size()) +
              ", of which Dovecot uses line " + first,
          "remove one of them");
  }

  void CheckHash() {
    const std::string_view hash = Column(2);
    if (hash.empty()) {
      Warning("PASSWD-NO-HASH", Name() + " has no password, so nobody can log in",
              "put a hash there, or take the line out");
    } else if (hash.starts_with('{') && hash.find('}') + 1 == hash.size()) {
      Error("PASSWD-OPEN",
            Name() + " has a password scheme without a hash; with PLAIN the empty password logs in",
            "put a hash behind the scheme, or take the line out");
    }
  }

  void AddShort() {
    Error("PASSWD-SHORT", ShortLineProblem(name_, document_.Text(line_)),
          "complete the line, or take it out or put # before it");
  }

  void CheckId(const std::string& field, unsigned long column) {
    const std::string_view id = Column(column);
    constexpr std::size_t kMostDigits = 10;
    if (!AllDigits(id) || id.size() > kMostDigits) {
      Error("PASSWD-ID", Name() + " has a " + field + " that is no number from 1 on",
            "set the " + field + " of the mailbox's owner");
    } else if (IsZero(id)) {
      Error("PASSWD-ROOT", Name() + " has the " + field + " 0, which Dovecot refuses",
            "set the " + field + " of the mailbox's owner");
    }
  }

  void CheckHome() {
    if (Column(6).starts_with('/')) return;
    Error("PASSWD-HOME", Name() + " has no absolute home, so its mail has no place",
          "set the path of the home");
  }

  void CheckExtraFields() {
    bool percent = false;
    bool opens = false;
    for (const unsigned long column : {8UL, 9UL}) {
      percent = percent || Column(column).find('%') != std::string_view::npos;
      opens = opens || HasWord(Column(column), "nopassword");
    }
    if (opens) {
      Error("PASSWD-NOPASSWORD", Name() + " has the word nopassword: every password logs in",
            "take the word out");
    }
    if (percent) {
      Warning("PASSWD-PERCENT", Name() + " has '%' in its extra fields, which Dovecot expands",
              "take it out, or leave it when that is meant");
    }
  }

  std::string Name() const { return std::string(name_); }
  // As people count lines; of one that was reached already.
  std::size_t NumberOf(Line line) const {
    const auto found = std::lower_bound(lines_.begin(), lines_.end(), line);
    return static_cast<std::size_t>(found - lines_.begin()) + 1;
  }

  const std::string& path_;
  const ConfDocument& document_;
  const bool in_words_;
  std::set<std::string, std::less<>> active_;
  Line line_ = 0;
  std::vector<Line> lines_;  // up to and with the present one
  std::string_view name_;
  std::vector<Found> found_;
};

}  // namespace

std::vector<Finding> CheckPasswdLines(const std::string& path, std::string_view content,
                                      const std::vector<std::string>* active) {
  const ConfDocument document = Parse(content);
  std::vector<Finding> findings;
  for (Found& found : LineChecks(path, document, active).All()) {
    findings.push_back(std::move(found.finding));
  }
  return findings;
}

std::vector<Finding> NewPasswdFindings(const std::string& path, std::string_view before,
                                       std::string_view after) {
  const ConfDocument old_document = Parse(before);
  const ConfDocument new_document = Parse(after);
  std::map<std::pair<std::string, std::string_view>, int> known;
  for (const Found& found : LineChecks(path, old_document).All()) {
    ++known[{found.finding.code, old_document.Text(found.line)}];
  }
  std::vector<Finding> findings;
  for (Found& found : LineChecks(path, new_document).All()) {
    int& left = known[{found.finding.code, new_document.Text(found.line)}];
    if (left-- <= 0) findings.push_back(std::move(found.finding));
  }
  return findings;
}

std::vector<Finding> ComparePasswdNames(const std::string& path, std::string_view content,
                                        const std::vector<std::string>& active,
                                        const std::vector<std::string>& inactive) {
  const ConfDocument document = Parse(content);
  const std::set<std::string, std::less<>> on(active.begin(), active.end());
  const std::set<std::string, std::less<>> off(inactive.begin(), inactive.end());
  std::vector<Finding> findings;
  std::size_t number = 0;
  for (Line line = document.NextLine(0); line != ConfDocument::kNone;
       line = document.NextLine(line + 1)) {
    ++number;
    if (!document.IsRecord(line, kColumns)) continue;
    const std::string name(document.Name(line));
    if (off.count(name) != 0) {
      findings.push_back({"PASSWD-INACTIVE", Severity::kError, At(path, number),
                          "mailbox " + name + " is switched off, but its line lets its user in",
                          "brisq sync"});
    } else if (on.count(name) == 0) {
      findings.push_back(
          {"PASSWD-STRANGER", Severity::kWarning, At(path, number),
           name + " is no mailbox of the panel",
           "brisq passwd-file edit: take the line out, and then add a mailbox of this "
           "name if there is to be one"});
    }
  }
  for (const std::string& address : active) {
    // One that is short is found as such.
    if (document.FindNamed(address) != ConfDocument::kNone) continue;
    findings.push_back({"PASSWD-NO-LINE", Severity::kError, address,
                        "the mailbox has no line in " + path + ", so nobody can log in",
                        "brisq sync, or brisq mailbox delete " + address});
  }
  return findings;
}

}  // namespace brisq_panel
