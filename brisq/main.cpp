#include <unistd.h>

#include <iostream>

#include "brisq/program.h"

int main(int argc, char** argv) {
  const brisq::Console console{std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1};
  return brisq::RunProgram({argv + 1, argv + argc}, console);
}
