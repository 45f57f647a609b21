#pragma once

#include <functional>
#include <string>

#include "brisq_export.h"

/// Runs `attempt` in a child process that is forked for it, with its standard streams on
/// "/dev/null", and returns the text that it returned. When the child ends before that, or has not
/// come to an end after `limit_seconds` (it is killed then), the text says so. An exception that
/// leaves `attempt`, or that ends the child, is told with its words.
/// @throws mgr_err::Error "plugin" when no child can be made
BRISQ_API std::string RunInChild(const std::function<std::string()>& attempt, int limit_seconds);
