// doveadm for "dovecot-doveadm": runs the distribution's doveadm with the option -O before "pw".
//
// Every doveadm call reads Dovecot's whole configuration, certificates included, also "pw", which
// needs none of it. With thousands of certificate snippets that takes seconds and hundreds of
// megabytes for each password; -O leaves the configuration out. All other commands need it and get
// no option.
//
// Where BRISQ_BARE is set it goes without the C library. Its start asks the processor for its kind,
// dozens of times, and on a virtual machine the host answers: 0.8 ms, five times what all else
// takes.

#include <errno.h>
#include <sys/syscall.h>

#ifndef BRISQ_BARE
#include <stdlib.h>
#include <unistd.h>
#endif

namespace {

constexpr long kCantStart = 127;
constexpr long kStandardError = 2;

char doveadm[] = "/usr/bin/doveadm";
char name[] = "doveadm";
char without_configuration[] = "-O";

#ifndef BRISQ_BARE
// The result, or the negative errno, as the kernel itself tells it.
long Call(long number, long first, long second = 0, long third = 0) {
  const long result = syscall(number, first, second, third);
  return result < 0 ? -errno : result;
}
#else
long Call(long number, long first, long second = 0, long third = 0) {
  long result = number;
  asm volatile("syscall"
               : "+a"(result)
               : "D"(first), "S"(second), "d"(third)
               : "rcx", "r11", "memory");
  return result;
}
#endif

long Address(const void* of) { return reinterpret_cast<long>(of); }

bool IsPw(const char* word) {
  return word != nullptr && word[0] == 'p' && word[1] == 'w' && word[2] == '\0';
}

template <unsigned long kSize>
void Say(const char (&text)[kSize]) {
  Call(SYS_write, kStandardError, Address(text), kSize - 1);
}

void SayNumber(long number) {
  char digits[] = "000";
  for (long at = 3; at > 0; number /= 10) {
    digits[--at] = static_cast<char>('0' + number % 10);
  }
  Say(digits);
}

void SayWhy(long error) {
  Say("/usr/bin/doveadm: ");
  if (error == ENOENT) {
    Say("No such file or directory");
  } else if (error == EACCES) {
    Say("Permission denied");
  } else {
    Say("can't be started, error ");
    SayNumber(error);
  }
  Say("\n");
}

// `slots`: one that is free, then the arguments of a program with their end.
long Run(char** slots, char** environment) {
  char** words = slots;
  if (IsPw(slots[1] == nullptr ? nullptr : slots[2])) {
    words[1] = without_configuration;
  } else if (slots[1] != nullptr) {
    ++words;
  }
  words[0] = name;
  SayWhy(-Call(SYS_execve, Address(doveadm), Address(words), Address(environment)));
  return kCantStart;
}

}  // namespace

#ifdef BRISQ_BARE
// What the kernel leaves on the stack: the number of arguments, the arguments and their end, the
// environment and its end.
extern "C" [[noreturn, gnu::used]] void BrisqStart(char** slots) {
  const long count = Address(slots[0]);
  const long code = Run(slots, slots + 1 + count + 1);
  for (;;) Call(SYS_exit_group, code);
}

asm(".globl _start\n"
    "_start:\n"
    "  xorl %ebp, %ebp\n"
    "  movq %rsp, %rdi\n"
    "  andq $-16, %rsp\n"
    "  call BrisqStart\n");
#else
int main(int count, char** words) {
  const auto size = static_cast<size_t>(count);
  char** slots = static_cast<char**>(calloc(size + 2, sizeof *slots));
  if (slots == nullptr) return kCantStart;
  for (size_t at = 0; at < size; ++at) slots[at + 1] = words[at];
  return static_cast<int>(Run(slots, environ));
}
#endif
