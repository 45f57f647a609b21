#include "panel/line_diff.h"

#include <unordered_map>

namespace brisq_panel {

namespace {

std::vector<std::string_view> Split(std::string_view content) {
  std::vector<std::string_view> lines;
  while (!content.empty()) {
    const std::size_t end = std::min(content.find('\n'), content.size());
    lines.push_back(content.substr(0, end));
    content.remove_prefix(std::min(end + 1, content.size()));
  }
  return lines;
}

std::string_view Name(std::string_view line) { return line.substr(0, line.find(':')); }

bool HasHash(std::string_view line) {
  return !line.empty() && line.front() != '#' && line.find(':') != std::string_view::npos;
}

std::string_view Hash(std::string_view line) {
  const std::string_view rest = line.substr(line.find(':') + 1);
  return rest.substr(0, rest.find(':'));
}

// The line with its hash masked; comments may be lines that somebody has put out of use.
std::string Masked(std::string_view line, std::string_view mask) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return std::string(line);
  }
  const std::string_view hash = Hash(line);
  const std::size_t scheme = hash.starts_with('{') ? hash.find('}') + 1 : 0;
  return std::string(line.substr(0, colon + 1)) + std::string(hash.substr(0, scheme)) +
         std::string(hash.size() > scheme ? mask : "") +
         std::string(line.substr(colon + 1 + hash.size()));
}

class Diff {
 public:
  Diff(std::string_view before, std::string_view after) : old_(Split(before)), new_(Split(after)) {
    for (const std::string_view line : new_) {
      ++left_in_new_[line];
    }
  }

  std::vector<std::string> Lines() {
    while (at_old_ < old_.size() || at_new_ < new_.size()) {
      Step();
    }
    return std::move(lines_);
  }

 private:
  bool OldEnds() const { return at_old_ == old_.size(); }
  bool NewEnds() const { return at_new_ == new_.size(); }

  void Step() {
    if (!OldEnds() && !NewEnds() && old_[at_old_] == new_[at_new_]) {
      in_group_ = false;
      ++at_old_;
      TakeNew();
    } else if (!OldEnds() && !NewEnds() && Name(old_[at_old_]) == Name(new_[at_new_])) {
      Change();
    } else if (!OldEnds() && (NewEnds() || left_in_new_[old_[at_old_]] == 0)) {
      Print('-', Masked(old_[at_old_], "***"));
      ++at_old_;
    } else {
      Print('+', Masked(new_[at_new_], "***"));
      TakeNew();
    }
  }

  void Change() {
    const std::string_view before = old_[at_old_];
    const std::string_view after = new_[at_new_];
    const bool same = HasHash(before) && HasHash(after) && Hash(before) == Hash(after);
    Print('-', Masked(before, "***"));
    Print('+', Masked(after, same ? "***" : "*** (changed)"));
    ++at_old_;
    TakeNew();
  }

  void TakeNew() { --left_in_new_[new_[at_new_++]]; }

  void Print(char sign, const std::string& line) {
    if (!in_group_) {
      lines_.push_back("@@ line " + std::to_string(at_old_ + 1) + " @@");
    }
    in_group_ = true;
    lines_.push_back(sign + line);
  }

  const std::vector<std::string_view> old_;
  const std::vector<std::string_view> new_;
  std::unordered_map<std::string_view, long> left_in_new_;
  std::size_t at_old_ = 0;
  std::size_t at_new_ = 0;
  bool in_group_ = false;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> DiffLines(std::string_view before, std::string_view after) {
  return Diff(before, after).Lines();
}

}  // namespace brisq_panel
