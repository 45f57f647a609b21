#include "panel/password_line.h"

#include "cached_config.h"
#include "conf_dataset.h"
#include "framework/conf_line.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/object_state.h"

namespace brisq_panel {

namespace {

// The lines of the file, of which the panel itself uses the first two columns.
class PasswordLines : public UnixDataSet {
 public:
  PasswordLines()
      : ConfDataSet(nullptr),
        name(this, "name"),
        passwd(this, "passwd"),
        uid(this, "uid"),
        gid(this, "gid"),
        info(this, "info"),
        home(this, "home"),
        shell(this, "shell"),
        flags(this, "flags"),
        maildir(this, "maildir") {}

  dd::Field name;
  dd::Field passwd;
  dd::Field uid;
  dd::Field gid;
  dd::Field info;
  dd::Field home;
  dd::Field shell;
  dd::Field flags;
  dd::Field maildir;
};

class PasswordFile : public MgrCachedConfig<PasswordFile> {
 public:
  PasswordFile() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<PasswordLines>();
  }
};

Cursor<PasswordLines> Open(const std::string& path) {
  return PasswordFile::Get<PasswordLines>(path, true);
}

struct Column {
  const char* name;
  dd::Field PasswordLines::*field;
};

// In the file's order, behind the name.
constexpr Column kColumns[] = {
    {kHash, &PasswordLines::passwd},  {"uid", &PasswordLines::uid},
    {"gid", &PasswordLines::gid},     {"info", &PasswordLines::info},
    {"home", &PasswordLines::home},   {"shell", &PasswordLines::shell},
    {"flags", &PasswordLines::flags}, {"mail", &PasswordLines::maildir},
};

}  // namespace

LineValues ValuesOfLine(std::string_view text) {
  constexpr unsigned long kAll = 1 + std::size(kColumns);
  LineValues values;
  unsigned long number = 2;
  for (const Column& column : kColumns) {
    values[column.name] = conf_line::Column(text, ':', kAll, number++);
  }
  return values;
}

LineValues StoredLine(const std::string& address) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  LineValues values;
  if (path.empty()) {
    return values;
  }
  const Cursor<PasswordLines> lines = Open(path);
  if (lines->Find(address)) {
    for (const Column& column : kColumns) {
      values[column.name] = ((*lines).*column.field).Str();
    }
  }
  return values;
}

void StoreLine(const std::string& address, const LineValues& values) {
  const Cursor<PasswordLines> lines = Open(mgr_cf::GetPath("dovecot-passwd"));
  if (!lines->Find(address)) {
    lines->New();
    lines->name.Set(address);
  }
  for (const Column& column : kColumns) {
    ((*lines).*column.field).Set(values.at(column.name));
  }
  lines->Post("");
}

void RemoveLine(const std::string& address) {
  const Cursor<PasswordLines> lines = Open(mgr_cf::GetPath("dovecot-passwd"));
  if (lines->Find(address)) {
    lines->_Delete(true);
  }
}

std::optional<std::string> StoredHash(const std::string& address) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty()) {
    return std::nullopt;
  }
  const Cursor<PasswordLines> lines = Open(path);
  return lines->Find(address) ? std::optional(lines->passwd.Str()) : std::nullopt;
}

bool HasAnyLine() {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty()) {
    return true;
  }
  const Cursor<PasswordLines> lines = Open(path);
  lines->First();
  return !lines->Eof();
}

std::string PasswdFileText(const std::string& path) {
  return std::string(Open(path)->getConfig()->bytes);
}

void EachHash(const std::function<void(const std::string&, const std::string&)>& look) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty()) {
    return;
  }
  const Cursor<PasswordLines> lines = Open(path);
  for (lines->First(); !lines->Eof(); lines->Next()) {
    look(lines->name.Str(), lines->passwd.Str());
  }
}

void StoreHash(const std::string& address, const std::string& hash) {
  const Cursor<PasswordLines> lines = Open(mgr_cf::GetPath("dovecot-passwd"));
  lines->Assert(address);
  lines->passwd.Set(hash);
  lines->Post("");
}

}  // namespace brisq_panel
