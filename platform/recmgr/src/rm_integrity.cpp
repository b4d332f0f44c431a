// The store's own soundness check: SQLite's integrity check run through a read-only
// connection of its own, beside whatever connection the process already holds. It reads
// what is committed and takes no writer's turn, so it may run while others write.
#include <sqlite3.h>

#include <string>
#include <vector>

#include "record_manager.h"
#include "rm_pg_backend.h"
#include "rm_sqlite_backend.h"
#include "rm_store_internal.h"

uint16_t CheckStoreIntegrity(const char* directory, int max_problems, bool quick,
                             std::vector<std::string>* problems) {
  problems->clear();
  if (directory == nullptr) return kStatusFileNotFound;
  rm::ServedStore served;
  if (rm::ServedFrom(rm::LexicalDirectory(directory), &served)) {
    return rm::CheckPgSchema(served.conninfo, served.schema, max_problems, problems);
  }
  const std::string path = std::string(directory) + "/" + rm::kStoreFileName;
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    return (rc & 0xff) == SQLITE_CANTOPEN ? kStatusFileNotFound : kStatusIoError;
  }
  sqlite3_busy_timeout(db, 10000);
  const std::string sql = std::string("PRAGMA ") + (quick ? "quick_check(" : "integrity_check(") +
                          std::to_string(max_problems > 0 ? max_problems : 1) + ")";
  sqlite3_stmt* statement = nullptr;
  rc = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
  while (rc == SQLITE_OK && (rc = sqlite3_step(statement)) == SQLITE_ROW) {
    // A row may hold several problems, one a line, under a line naming the database.
    const unsigned char* text = sqlite3_column_text(statement, 0);
    std::string rest = text != nullptr ? reinterpret_cast<const char*>(text) : "";
    while (!rest.empty()) {
      const size_t end = rest.find('\n');
      const std::string line = rest.substr(0, end);
      rest = end == std::string::npos ? "" : rest.substr(end + 1);
      if (line != "ok" && !line.empty() && line.rfind("*** in database", 0) != 0) {
        problems->push_back(line);
      }
    }
    rc = SQLITE_OK;
  }
  if (rc != SQLITE_DONE && problems->empty()) {
    // The check could not even run: the store is not one, or its first pages are damaged.
    problems->push_back(sqlite3_errmsg(db));
  }
  sqlite3_finalize(statement);
  sqlite3_close_v2(db);
  return problems->empty() ? kStatusOk : kStatusIoError;
}
