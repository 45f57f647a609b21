#include "panel/sealed_texts.h"

#include "framework/database.h"
#include "framework/journal.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace brisq_panel {

namespace {

void AddRows(const std::string& where, const std::string& sql, std::vector<SealedText>& texts) {
  for (const auto& row : mgr_db::ThreadConnection()->Query(sql, {}, 1)) {
    texts.push_back({where, row.front()});
  }
}

// Empty when its request has ended meanwhile.
std::string ContentOf(const std::string& entry) {
  try {
    return mgr_file::ReadE(entry);
  } catch (const mgr_err::Error&) {
    if (mgr_file::Exists(entry)) {
      throw;
    }
    return {};
  }
}

void AddEntry(const std::string& id, std::vector<SealedText>& texts) {
  std::string latest;
  for (const journal::Step& step :
       journal::FromRecords(ContentOf(mgr_file::ConcatPath(journal::Folder(), id)))) {
    latest = step.Value("sealed").empty() ? latest : step.Value("sealed");
  }
  if (!latest.empty()) {
    texts.push_back({"the journal's entry " + id, latest});
  }
}

}  // namespace

std::vector<SealedText> SealedPasswords() {
  std::vector<SealedText> texts;
  AddRows("a kept password", "SELECT password FROM mailboxes WHERE password != ''", texts);
  return texts;
}

std::vector<SealedText> LatestSealedTexts() {
  std::vector<SealedText> texts;
  AddRows("the latest archived password",
          "SELECT password FROM mailbox_archive WHERE password != '' ORDER BY id DESC LIMIT 1",
          texts);
  AddRows("the latest archived hash",
          "SELECT hash FROM mailbox_archive WHERE hash != '' ORDER BY id DESC LIMIT 1", texts);
  AddRows("what undoes the latest job",
          "SELECT sealed FROM job WHERE sealed != '' ORDER BY id DESC LIMIT 1", texts);
  if (!journal::Folder().empty()) {
    for (const std::string& id : journal::Ids()) {
      AddEntry(id, texts);
    }
  }
  return texts;
}

bool AnySealedText() {
  return !mgr_db::ThreadConnection()
              ->Query("SELECT 1 FROM mailboxes WHERE password != '' LIMIT 1", {}, 1)
              .empty() ||
         !LatestSealedTexts().empty();
}

}  // namespace brisq_panel
