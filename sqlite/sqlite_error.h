#pragma once

#include <soci/soci.h>

#include <string>

#include "mgr_err.h"

/// What SQLite says, for an administrator.
namespace mgr_db {

/// The error for what a connection has refused. It holds no values of the statement.
/// @param file  of the database: the object, as it is what somebody frees or puts back
/// @param last_refusal  errno of the last system call that was refused meanwhile; 0 for none
/// @return type "locked" when another process is changing the file, "exists" for a value that is
/// taken, else "db": for a full disk, or another refusal of the system, with the system's words
mgr_err::Error Translated(const std::string& file, const soci::soci_error& error, int last_refusal);

/// SQLite takes a lock for held that it could not give back, and then refuses every transaction of
/// this connection: only closing it lets go. Nothing was done yet when it says so.
bool IsStuck(const soci::soci_error& error);

}  // namespace mgr_db
