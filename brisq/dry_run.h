#pragma once

#include <functional>

#include "brisq/command.h"

namespace brisq {

/// Does the work as a dry run and says what it would have changed.
void RunDry(Call& call, const std::function<void()>& work);

}  // namespace brisq
