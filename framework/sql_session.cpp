#include "framework/sql_session.h"

#include "framework/shared_library.h"

namespace mgr_db {

SqlSession::~SqlSession() = default;

void SqlSession::Load() { const SharedLibrary library(kLibrary); }

std::shared_ptr<SqlSession> SqlSession::Open(const std::string& file, int busy_limit_ms,
                                             const std::string& library) {
  OpenSessionFunction* open = nullptr;
  SharedLibrary(library).Find(kOpenSession, open);
  return std::shared_ptr<SqlSession>(open(file, busy_limit_ms));
}

}  // namespace mgr_db
