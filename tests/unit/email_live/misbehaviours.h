#pragma once

#include <string>
#include <vector>

/// Ways in which a doveadm can fail to make a password hash, and what people are told of each.
namespace live {

struct Misbehaviour {
  const char* name;
  /// Of a shell script that was called with "pw": REST stands for seconds that are long, ZERO for
  /// an endless file. Null for what is no program.
  const char* body;
  /// The line on standard error behind "brisq: dovecot: doveadm: "; PROGRAM stands for the path.
  /// Of one that begins with "..." the end alone counts. Empty when the answer is taken.
  std::string told;

  bool IsTold(const std::string& line, const std::string& program) const;
};

/// Those that end badly.
const std::vector<Misbehaviour>& ThatFail();
/// Those that end well, or would if they were let, whatever they print.
const std::vector<Misbehaviour>& ThatAnswer();
/// Those that the time limit ends: ExecTimeout is 0.2.
const std::vector<Misbehaviour>& ThatHang();
/// Those that are no program, known by their names.
const std::vector<Misbehaviour>& ThatCannotStart();

}  // namespace live
