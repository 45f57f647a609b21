#pragma once

#include <map>
#include <string>

#include "brisq_export.h"
#include "framework/file_access.h"

/// What the panel's objects are at one moment, as texts by name, for telling what a request has
/// changed.
namespace brisq_panel {

/// Empty for an object that does not exist.
using ObjectState = std::map<std::string, std::string>;

/// Kinds of objects.
constexpr const char* kMailbox = "mailbox";
constexpr const char* kDomain = "domain";
constexpr const char* kOwner = "owner";
constexpr const char* kLine = "line";      ///< of the mail server's file, by its name
constexpr const char* kAccess = "access";  ///< mode and owner of what is at a path
/// What was made or removed at a path; what it was is told, not its state.
constexpr const char* kDirectory = "directory";
constexpr const char* kLink = "link";
constexpr const char* kFile = "file";

/// Names of values that must not be shown: a mailbox's hash in the mail server's file, and its
/// password as the panel keeps it (sealed).
constexpr const char* kHash = "hash";
constexpr const char* kKeptPassword = "kept password";
/// The hash that was kept for a mailbox which is switched off, when another one took its place.
constexpr const char* kFormerHash = "former hash";

/// @param kind  one of the above, up to kAccess
/// @param name  of the object, in stored form
/// @throws what reading the database or the mail server's file throws
BRISQ_API ObjectState StateOf(const std::string& kind, const std::string& name);

/// The state of an object of kind kAccess: "mode" (octal), "uid", "gid".
BRISQ_API ObjectState AccessValues(const file_access::Access& access);
/// The same the other way round.
BRISQ_API file_access::Access AccessIn(const ObjectState& state);

}  // namespace brisq_panel
