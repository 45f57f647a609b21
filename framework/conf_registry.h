#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "brisq_export.h"
#include "framework/conf_configuration.h"
#include "framework/conf_file.h"

/// The configurations of a cache and the files that it keeps. Any thread.
class BRISQ_API ConfRegistry {
 public:
  /// @param unused  how many files are kept that nobody uses
  explicit ConfRegistry(std::size_t unused) : unused_(unused) {}

  /// The configuration of this name, made when it is not there.
  ConfConfiguration& Declare(const std::string& name);
  /// A configuration that was given a syntax.
  /// @throws mgr_err::Error "internal" for one that was never given a syntax
  std::shared_ptr<const ConfConfiguration> Registered(const std::string& name) const;
  /// The file of a configuration, not read yet when it was not there; in a dry run a copy of the
  /// thread's own. Configurations with one syntax share it.
  /// @throws mgr_err::Error "internal" for a configuration that was never given a syntax
  std::shared_ptr<ConfFile> File(const std::string& name, const std::string& path);
  /// Remembers that files of this configuration may be opened.
  void SetSyntax(const std::string& name, const mgr_token::Params& syntax);
  /// Number of files that are kept.
  std::size_t Files() const;

 private:
  struct Configuration {
    std::shared_ptr<ConfConfiguration> registered;
    bool has_syntax = false;
  };
  struct File_ {
    std::shared_ptr<ConfFile> file;
    std::uint64_t last_use = 0;
  };

  std::shared_ptr<const ConfConfiguration> WithSyntax(const std::string& name) const;
  Configuration& Entry(const std::string& name);
  void DropUnused();

  const std::size_t unused_;
  mutable std::mutex mutex_;
  std::map<std::string, Configuration> configurations_;
  std::map<ConfFile::Key, File_> files_;
  std::uint64_t uses_ = 0;
};
