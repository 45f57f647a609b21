#include "panel/instance.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/due.h"
#include "framework/file_error.h"
#include "framework/journal.h"
#include "framework/log_setup.h"
#include "framework/modules.h"
#include "framework/proc_ahead.h"
#include "framework/reload_queue.h"
#include "framework/seal.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/email_module.h"
#include "panel/email_reload.h"
#include "panel/instance_places.h"
#include "panel/numeric_settings.h"
#include "panel/passwd_file_edit.h"
#include "panel/path_key.h"
#include "panel/records.h"
#include "panel/recovery.h"
#include "panel/refresh_lock.h"
#include "panel/sealed_texts.h"
#include "panel/system_dirs.h"

namespace brisq_panel {

namespace {

std::atomic<bool> g_open{false};

// The one instance that may be open.
class Turn {
 public:
  Turn() {
    if (g_open.exchange(true)) {
      throw mgr_err::Error("internal", "panel", "another instance is open in this process");
    }
  }
  ~Turn() { g_open = false; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
};

class OpenedDatabase {
 public:
  explicit OpenedDatabase(const std::string& file) {
    mgr_db::OpenDatabase(file);
    try {
      CreatePanelTables();
    } catch (...) {
      mgr_db::CloseDatabase();
      throw;
    }
  }
  ~OpenedDatabase() { mgr_db::CloseDatabase(); }
  OpenedDatabase(const OpenedDatabase&) = delete;
  OpenedDatabase& operator=(const OpenedDatabase&) = delete;
};

struct OpenedJournal {
  OpenedJournal() = default;
  ~OpenedJournal() { journal::SetFolder(""); }
  OpenedJournal(const OpenedJournal&) = delete;
  OpenedJournal& operator=(const OpenedJournal&) = delete;
};

void RequirePaths(const mgr_cf::Settings& settings) {
  if (settings.state.empty() || settings.database.empty()) {
    throw mgr_err::Error("config", settings.file, "state and database must be given");
  }
}

// Who may write in a folder can put another file in the place of each that lies in it. It is not
// narrowed: it may be one that others need, such as /tmp.
void RefuseOpenFolder(const std::string& folder) {
  struct stat state {};
  if (::stat(folder.c_str(), &state) != 0) {
    throw mgr_file::FileError(folder, "stat");
  }
  if (state.st_uid != ::geteuid() || (state.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw mgr_err::Error("file", folder,
                         "other users may write in it: give it the owner root and the mode 0700");
  }
}

void MakeStateFolder(const std::string& folder) {
  const mgr_file::Attrs parents(0755, ::geteuid(), ::getegid());
  const mgr_file::Attrs own(0700, ::geteuid(), ::getegid());
  MakeDirectories(folder, parents, own);
  RefuseOpenFolder(folder);
}

void ConfigureLog(const mgr_cf::Settings& settings) {
  mgr_log::Setup setup;
  setup.directory = settings.log_directory;
  setup.level = settings.log_level;
  setup.levels = settings.log_levels;
  setup.rotate_bytes = static_cast<std::size_t>(settings.log_rotate_mb) << 20;
  setup.keep = static_cast<unsigned>(settings.log_keep);
  mgr_log::Configure(setup);
}

void DeclareParams() {
  mgr_cf::AddParam("EmailSweepLimit", "30");
  mgr_cf::AddParam("EmailPasswordDelay", "0");
  mgr_cf::AddParam("JobHistoryDays", "90");
}

std::vector<std::string> PluginPaths(const mgr_cf::Settings& settings) {
  return settings.plugins.empty() ? std::vector<std::string>{Instance::DefaultPluginFolder()}
                                  : settings.plugins;
}

std::vector<brisq_api::PluginReport> StartPlugins(brisq_api::PluginLoading& plugins) {
  auto reports = plugins.Load();
  for (const brisq_api::PluginReport& report : brisq_api::BuildModules("email_interface")) {
    reports.push_back(report);
  }
  return reports;
}

// What Dovecot's back-end asks while it is built. The tool takes longer than all the rest of
// opening the panel.
std::unique_ptr<mgr_proc::Ahead> AskForSchemes() {
  const std::string doveadm = mgr_cf::GetPath("dovecot-doveadm");
  if (mgr_cf::GetParam("POP3") != "dovecot" || doveadm.empty() ||
      !IsSafeProgram("dovecot-doveadm")) {
    return nullptr;
  }
  return std::make_unique<mgr_proc::Ahead>(doveadm + " pw -l");
}

// Why no mail back-end would be at work, for the one who asks for a mailbox.
std::string BackendProblem(const std::vector<brisq_api::PluginReport>& reports) {
  const std::string wish = mgr_cf::GetParam("POP3");
  std::string problem = wish.empty() ? "the parameter POP3 is not set"
                                     : "no plug-in serves the parameter POP3 = \"" + wish + "\"";
  for (const brisq_api::PluginReport& report : reports) {
    if (!report.error.empty()) {
      problem += "; " + report.file + ": " + report.error;
    }
  }
  return problem;
}

}  // namespace

struct Instance::State {
  State(const mgr_cf::Settings& settings, const std::function<void()>& meanwhile) {
    RequirePaths(settings);
    CheckNumericSettings(settings);
    MakeStateFolder(settings.state);
    MakeStateFolder(mgr_file::SplitPath(settings.database).first);
    mgr_cf::Apply(settings);
    ConfigureLog(settings);
    const auto schemes = AskForSchemes();
    brisq_api::PluginLoading plugins(PluginPaths(settings));
    RefreshLock::SetFolder(settings.state);
    PasswdFileEdit::SetFolder(settings.state);
    SetInstancePlaces({settings.state, settings.database, settings.log_directory});
    mgr_seal::SetKeyFile(mgr_file::ConcatPath(settings.state, "seal.key"), AnySealedText);
    database = std::make_unique<OpenedDatabase>(settings.database);
    journal::SetFolder(mgr_file::ConcatPath(settings.state, "journal"));
    reload_requests = std::make_unique<ReloadRequests>(settings.state);
    DeclareParams();
    // The mail back-end runs it when it is built.
    RefuseUnsafeProgram("dovecot-doveadm");
    if (meanwhile) {
      meanwhile();
    }
    reports = StartPlugins(plugins);
    SetBackendProblem(BackendProblem(reports));
    if (HasMailBackend()) {
      AbsolutePath("dovecot-passwd");
    }
    recovered = RecoverRequests();
  }

  Turn turn;
  std::unique_ptr<OpenedDatabase> database;
  OpenedJournal journal;
  std::unique_ptr<ReloadRequests> reload_requests;
  std::vector<brisq_api::PluginReport> reports;
  std::vector<std::string> recovered;
};

Instance::Instance(const mgr_cf::Settings& settings, const std::function<void()>& meanwhile)
    : state_(std::make_unique<State>(settings, meanwhile)) {}
Instance::~Instance() = default;

const std::vector<brisq_api::PluginReport>& Instance::reports() const noexcept {
  return state_->reports;
}

const std::vector<std::string>& Instance::recovered() const noexcept { return state_->recovered; }

std::vector<std::string> Instance::RunDue() {
  std::vector<std::string> problems;
  try {
    due::RunQueuedCommands();
    for (const reloader::ReloadRun& run : reloader::RunDue()) {
      if (!run.error.empty()) {
        problems.push_back(std::string(run.hard ? "restart" : "reload") + " failed: " + run.error);
      }
    }
  } catch (const std::exception& error) {
    // What the command was for has been done, and its data is still to be written.
    problems.push_back(std::string("reload not done yet: ") + error.what());
  }
  return problems;
}

std::string Instance::DefaultPluginFolder() {
  Dl_info library{};
  if (::dladdr(&g_open, &library) == 0) {
    throw mgr_err::Error("internal", "panel", "its library has no file");
  }
  return mgr_file::ConcatPath(
      mgr_file::SplitPath(std::filesystem::absolute(library.dli_fname).lexically_normal()).first,
      "brisq");
}

}  // namespace brisq_panel
