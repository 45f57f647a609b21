#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_file.h"
#include "framework/recent_look.h"

/// While it lives, posts of its thread return when the change is in the document, and a save makes
/// many of them durable together: for imports and for walks that change many lines.
///
/// Saves are made at the end of the scope, and in between by the first use of a cursor on this
/// thread that comes a second or more after the last one, unless told otherwise. An inner scope
/// does nothing of its own.
class BRISQ_API DeferSaves {
 public:
  enum class Between {
    kEverySecond,  ///< a long walk shows as it goes
    kNever         ///< all at once: nothing is visible before Save or the end
  };

  explicit DeferSaves(Between between = Between::kEverySecond);
  /// Saves what is not saved yet; an error is logged, for one that must be known call Save before.
  ~DeferSaves();
  DeferSaves(const DeferSaves&) = delete;
  DeferSaves& operator=(const DeferSaves&) = delete;

  /// Saves now. In a request a change that may not outlive a power failure is noted (doubts).
  /// @throws the first error of a change since the last call or the last post that threw one: such
  /// a change is not in the file
  void Save();

  /// True while the thread has a scope.
  static bool IsOpen() noexcept;
  /// Saves when the thread has a scope and its time has come. Errors are kept for the next Save or
  /// post.
  static void Look() noexcept;
  /// Saves a change that was applied, or notes it for the thread's scope.
  /// @throws as ConfFile::Save; in a scope as Save, for an earlier change
  static void SaveOrNote(const std::shared_ptr<ConfFile>& file,
                         const std::shared_ptr<ConfFile::Waiting>& waiting);

 private:
  // Changes that follow each other, of one file.
  struct Noted {
    std::shared_ptr<ConfFile> file;
    std::vector<std::shared_ptr<ConfFile::Waiting>> changes;
  };

  void SaveNoted() noexcept;
  void SaveOne(ConfFile& file) noexcept;
  void Throw();

  bool outermost_;
  Between between_;
  std::int64_t last_save_ = RecentLook::Now();
  std::vector<Noted> noted_;
  std::exception_ptr error_;
};
