#pragma once

#include <string>
#include <vector>

namespace plugin {

/// Slots of one virtual table: which function of which class stands there, for example
/// "brisq_api::Action::type() const" or "X: deleting destructor". Thunks are named as what they
/// lead to.
using Slots = std::vector<std::string>;

/// The tables of a class in the order in which they lie in its group, primary first, computed from
/// the symbols and relocations of an x86-64 ELF library that was not stripped.
///
/// @param group  mangled name of the group, "_ZTV..."
/// @throws std::runtime_error when the library can't be read or has no such group
std::vector<Slots> VirtualTables(const std::string& library, const std::string& group);

}  // namespace plugin
