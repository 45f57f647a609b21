#pragma once

/// How much a run does, and what it tells about it.
namespace soak {

/// `long_form` when BRISQ_SOAK=1 is set in the environment, else `short_form`; a tenth of the
/// latter in a build that looks for data races, which makes everything ten times slower.
long Scaled(long long_form, long short_form);

/// Prints one figure of the running test.
void Print(const char* what, long figure);

}  // namespace soak
