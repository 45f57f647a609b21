#pragma once

#include <functional>
#include <string>

#include "framework/database.h"
#include "framework/request.h"
#include "mgr_db.h"
#include "mgr_err.h"

/// A table with a mark, and the same table without, for tests of runs over many rows.
namespace row_runs {

constexpr const char* kSchema =
    "CREATE TABLE boxes (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE,"
    " size INTEGER NOT NULL CHECK (size >= 0), tag INTEGER NOT NULL)";

// A table that says nothing of itself: each find and post is a statement.
class Box : public mgr_db::CustomTable {
 public:
  Box()
      : CustomTable("boxes"),
        id(this, "id"),
        name(this, "name"),
        size(this, "size"),
        tag(this, "tag") {}

  mgr_db::IntField id;
  mgr_db::StringField name;
  mgr_db::IntField size;
  mgr_db::IntField tag;
};

class MarkedBox : public Box {
 public:
  MarkedBox() {
    SetKey({&name});
    SetMark(tag);
  }
};

inline std::string NameOf(int number) { return "box" + std::to_string(number); }

inline bool Find(Box& box, int number) { return box.DbFind({{"name", NameOf(number)}}); }

inline std::string TypeOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    return error.type();
  }
  return "none";
}

// All rows as one text.
inline std::string Content() {
  std::string content;
  for (const auto& row : mgr_db::ThreadConnection()->Query(
           "SELECT id || ' ' || name || ' ' || size || ' ' || tag FROM boxes ORDER BY id", {}, 1)) {
    content += row.front() + "\n";
  }
  return content;
}

inline void AddBoxes(int first, int last) {
  Request request("boxes");
  for (int number = first; number <= last; ++number) {
    mgr_db::ThreadConnection()->Change("INSERT INTO boxes (name, size, tag) VALUES (:v1, 0, 0)",
                                       {NameOf(number)});
  }
  request.Commit();
}

// Makes the database anew with boxes 1 to `count`.
inline void MakeBoxes(const std::string& file, int count) {
  mgr_db::OpenDatabase(file);
  mgr_db::ThreadConnection()->Change(kSchema);
  AddBoxes(1, count);
}

}  // namespace row_runs
