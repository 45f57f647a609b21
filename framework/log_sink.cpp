#include "framework/log_sink.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <mutex>

#include "framework/log_file.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "mgr_log.h"

namespace mgr_log {

namespace {

constexpr const char* kPattern = "%Y-%m-%dT%H:%M:%S.%e%z %P %l %n: %v";

// Errors are lost: there is no third place.
void ToStandardError(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written <= 0 && errno != EINTR) {
      return;
    }
    text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
}

class SpdlogToStandardError : public spdlog::sinks::base_sink<std::mutex> {
 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    if (message.level < spdlog::level::warn) {
      return;
    }
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    ToStandardError({line.data(), line.size()});
  }
  void flush_() override {}
};

class SpdlogToFile : public spdlog::sinks::base_sink<std::mutex> {
 public:
  explicit SpdlogToFile(LogFile file) : file_(std::move(file)) {}

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t buffer;
    formatter_->format(message, buffer);
    const std::string_view line(buffer.data(), buffer.size());
    try {
      file_.Append(line);
      complained_ = false;
    } catch (const mgr_err::Error& error) {
      if (!complained_) {
        ToStandardError("the log can't be written: " + std::string(error.what()) + "\n");
      }
      complained_ = true;
      ToStandardError(line);
    }
  }
  void flush_() override {}

 private:
  LogFile file_;
  bool complained_ = false;
};

spdlog::level::level_enum SpdlogLevel(int level) {
  if (level <= kError) {
    return spdlog::level::err;
  }
  if (level <= kWarning) {
    return spdlog::level::warn;
  }
  return level <= kInfo ? spdlog::level::info : spdlog::level::debug;
}

// Goes without loggers and their registry, which is gone when the last messages of a process come.
class SpdlogSink : public Sink {
 public:
  explicit SpdlogSink(std::unique_ptr<spdlog::sinks::sink> target) : target_(std::move(target)) {
    target_->set_formatter(std::make_unique<spdlog::pattern_formatter>(kPattern));
  }
  void Write(std::string_view module, int level, std::string_view text) override {
    target_->log({spdlog::string_view_t(module.data(), module.size()), SpdlogLevel(level),
                  spdlog::string_view_t(text.data(), text.size())});
  }

 private:
  std::unique_ptr<spdlog::sinks::sink> target_;
};

}  // namespace

Sink::~Sink() = default;

std::unique_ptr<Sink> FileSink(const Setup& setup, const std::string& log) {
  LogFile file(mgr_file::ConcatPath(setup.directory, log + ".log"), setup.rotate_bytes, setup.keep);
  return std::make_unique<SpdlogSink>(std::make_unique<SpdlogToFile>(std::move(file)));
}

std::unique_ptr<Sink> StandardErrorSink() {
  return std::make_unique<SpdlogSink>(std::make_unique<SpdlogToStandardError>());
}

}  // namespace mgr_log
