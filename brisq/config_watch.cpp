#include "brisq/config_watch.h"

#include <exception>
#include <utility>

#include "framework/config_file.h"
#include "mgr_log.h"
#include "panel/known_settings.h"
#include "panel/numeric_settings.h"

namespace brisq {
namespace {

mgr_log::Module log_channel("config", "brisq");

}  // namespace

ConfigWatch::ConfigWatch(std::string file) : file_(std::move(file)) {}

void ConfigWatch::TakeUpChanges() {
  try {
    const ConfStamp now = StampAt(file_);
    if (now == seen_) return;
    seen_ = now;
    const mgr_cf::Settings settings = mgr_cf::ReadSettings(file_);
    brisq_panel::CheckNumericSettings(settings);
    mgr_cf::Apply(settings);
    for (const std::string& line : brisq_panel::UnknownSettings(settings))
      if (log_channel.Check(mgr_log::kWarning))
        log_channel.Write(mgr_log::kWarning, "%s", line.c_str());
    if (log_channel.Check(mgr_log::kInfo))
      log_channel.Write(mgr_log::kInfo, "%s taken up", file_.c_str());
  } catch (const std::exception& error) {
    if (log_channel.Check(mgr_log::kError))
      log_channel.Write(mgr_log::kError, "changed settings not taken up: %s", error.what());
  }
}

}  // namespace brisq
