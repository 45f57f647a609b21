#pragma once

#include <map>
#include <string>

#include "brisq_export.h"

/// What the panel's objects are at one moment, as texts by name, for telling what a request has
/// changed.
namespace brisq_panel {

/// Empty for an object that does not exist.
using ObjectState = std::map<std::string, std::string>;

/// Kinds of objects.
constexpr const char* kMailbox = "mailbox";
constexpr const char* kDomain = "domain";
constexpr const char* kOwner = "owner";

/// Names of values that must not be shown: a mailbox's hash in the mail server's file, and its
/// password as the panel keeps it (sealed).
constexpr const char* kHash = "hash";
constexpr const char* kKeptPassword = "kept password";

/// @param kind  one of the above
/// @param name  of the object, in stored form
/// @throws what reading the database or the mail server's file throws
BRISQ_API ObjectState StateOf(const std::string& kind, const std::string& name);

}  // namespace brisq_panel
