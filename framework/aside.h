#pragma once

#include <functional>
#include <string>

#include "brisq_export.h"

/// The entry that a job keeps beside its target while the target changes: ".brisq-job-" and 16
/// hexadecimal digits, in the target's directory, without an extension. Inside of a request the
/// journal knows of it before it is made, so that one that a killed process has left is dealt with
/// by FileSwap::Undo or FileSwap::Finish.
namespace aside {

/// A path for a new one. Nothing is made.
BRISQ_API std::string PathBeside(const std::string& target);

/// What stands behind its name in that of a second entry, which is made for a moment where two
/// can't be exchanged.
constexpr const char* kOldEnd = "-old";

/// True for the name, without a directory, of an entry of either kind.
BRISQ_API bool IsName(const std::string& name);

/// Tells the journal of the running request, if there is one, what is about to happen. May be told
/// again, when the target has another content by then: the last word counts.
/// @param aside  the entry beside
/// @param fresh  fingerprint of what is to stand at the target
/// @param what   in words, with the target: "/a/b replaced"
/// @param noted  fingerprint of the target when it was told, empty before: nothing is written when
/// it is still the same
/// @throws mgr_err::Error "file"
BRISQ_API void Note(const std::string& target, const std::string& aside, const std::string& fresh,
                    const std::string& what, std::string& noted);

/// Makes durable what has been renamed in a directory.
/// @param restore  takes it back when that fails; should that fail too, the request's entry in the
/// journal stays
/// @throws mgr_err::Error "file": the first failure
BRISQ_API void MakeDurable(const std::string& directory, const std::function<void()>& restore);

/// Removes it and forgets its name; an empty name is none. One that can't be removed stays, and the
/// request's entry in the journal with it.
BRISQ_API void Remove(std::string& aside) noexcept;

}  // namespace aside
