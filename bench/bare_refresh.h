#pragma once

#include <string>

namespace bench {

/// What a refresh asks of the database, by prepared statements of SQLite's C API in one
/// transaction: for each line of the passwd-file the domain by name and the mailbox by domain and
/// name, all columns, and an update of the mailbox's tag; at the end the delete of what has another
/// tag.
void RefreshBare(const std::string& database, const std::string& file, int tag);

}  // namespace bench
