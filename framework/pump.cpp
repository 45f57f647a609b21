#include "framework/pump.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "framework/sigpipe_guard.h"

namespace mgr_proc {

namespace {

constexpr std::size_t kChunk = 65536;
constexpr std::size_t kPiece = std::size_t{1} << 20;

void MakeNonBlocking(const Descriptor& end) {
  if (end) {
    ::fcntl(end.get(), F_SETFL, O_NONBLOCK);
  }
}

// For poll(2): rounded up, so that no wait ends just before its time.
int MillisecondsUntil(Pump::Time deadline) {
  using std::chrono::milliseconds;
  const auto left =
      std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

// Takes what one read gives, up to `most` bytes; 0 when there is nothing now or nothing any more.
std::size_t Receive(Outlet& outlet, std::size_t most) {
  std::array<char, kChunk> chunk;
  const ssize_t got = ::read(outlet.from.get(), chunk.data(), std::min(most, chunk.size()));
  if (got > 0) {
    outlet.to->Add({chunk.data(), static_cast<std::size_t>(got)});
    return static_cast<std::size_t>(got);
  }
  if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
    outlet.from.Close();
  }
  return 0;
}

bool HasOverflowed(const Outlet& outlet) { return outlet.must_fit && outlet.to->dropped() > 0; }

void DrainOne(Outlet& outlet) {
  if (!outlet.from) {
    return;
  }
  auto left = static_cast<std::size_t>(std::max(::fcntl(outlet.from.get(), F_GETPIPE_SZ), 0));
  while (left > 0 && outlet.from) {
    errno = 0;
    const std::size_t got = Receive(outlet, left);
    if (got == 0 && errno != EINTR) {
      return;
    }
    left -= got;
  }
}

}  // namespace

void Sink::Add(std::string_view bytes) {
  std::string_view kept = bytes.substr(0, limit_ - kept_);
  kept_ += kept.size();
  dropped_ += bytes.size() - kept.size();
  while (!kept.empty()) {
    if (pieces_.empty() || pieces_.back().size() == kPiece) {
      pieces_.emplace_back();
    }
    const std::string_view part = kept.substr(0, kPiece - pieces_.back().size());
    pieces_.back().append(part);
    kept.remove_prefix(part.size());
  }
}

std::string Sink::Text() const {
  std::string text;
  text.reserve(kept_);
  for (const std::string& piece : pieces_) {
    text += piece;
  }
  return text;
}

void SendAhead(Descriptor& end, SecretBuffer& input) {
  std::string_view left = input.Text();
  if (left.size() > kSentAhead) {
    return;
  }
  MakeNonBlocking(end);
  if (::fcntl(end.get(), F_GETPIPE_SZ) < static_cast<int>(left.size())) {
    ::fcntl(end.get(), F_SETPIPE_SZ, static_cast<int>(left.size()));
  }
  while (!left.empty()) {
    const ssize_t written = ::write(end.get(), left.data(), left.size());
    if (written < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "can't hold the command's input");
    }
    left.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  end.Close();
  input.Wipe();
}

Pump::Pump(Descriptor in, SecretBuffer& input, Outlet out, Outlet err)
    : in_(std::move(in)), input_(input), out_(std::move(out)), err_(std::move(err)) {
  MakeNonBlocking(in_);
  MakeNonBlocking(out_.from);
  MakeNonBlocking(err_.from);
}

bool Pump::RunUntilEnd(int pidfd, Time deadline) {
  if (pidfd < 0) {
    return true;
  }
  while (true) {
    // A closed end has the descriptor -1, which poll(2) passes over.
    std::array<pollfd, 4> ends = {{{pidfd, POLLIN, 0},
                                   {in_.get(), POLLOUT, 0},
                                   {out_.from.get(), POLLIN, 0},
                                   {err_.from.get(), POLLIN, 0}}};
    const int ready = ::poll(ends.data(), ends.size(), MillisecondsUntil(deadline));
    if (ready < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (ready > 0 && ends[1].revents != 0) {
      Send();
    }
    if (ready > 0 && ends[2].revents != 0) {
      Receive(out_, kChunk);
    }
    if (ready > 0 && ends[3].revents != 0) {
      Receive(err_, kChunk);
    }
    if (ready > 0 && ends[0].revents != 0) {
      return true;
    }
    if (HasOverflowed(out_) || HasOverflowed(err_)) {
      return false;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
  }
}

void Pump::Send() {
  const SigpipeGuard guard;
  const std::string_view left = input_.Text().substr(sent_);
  const ssize_t written = ::write(in_.get(), left.data(), left.size());
  if (written < 0 && (errno == EAGAIN || errno == EINTR)) {
    return;
  }
  sent_ += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  // Any other error means that the child reads no more, which is its own business.
  if (written < 0 || sent_ == input_.Text().size()) {
    in_.Close();
    input_.Wipe();
  }
}

void Pump::Drain() {
  DrainOne(out_);
  DrainOne(err_);
}

}  // namespace mgr_proc
