#include "framework/in_two.h"

#include <exception>
#include <system_error>
#include <thread>

namespace {

// Joined when the first call throws too.
class Helper {
 public:
  explicit Helper(const std::function<void()>& work) {
    try {
      thread_ = std::thread(work);
    } catch (const std::system_error&) {
      // A limit on threads is no reason to fail.
      work();
    }
  }
  ~Helper() {
    if (thread_.joinable()) thread_.join();
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

 private:
  std::thread thread_;
};

}  // namespace

void InTwo(const std::function<void()>& first, const std::function<void()>& second) {
  std::exception_ptr error;
  {
    const Helper helper([&] {
      try {
        second();
      } catch (...) {
        error = std::current_exception();
      }
    });
    first();
  }
  if (error) std::rethrow_exception(error);
}
