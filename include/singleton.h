#pragma once

/// The one object of a class in the process, made on first use (thread-safe) and destroyed at
/// process exit.
///
/// A class that more than one library uses must declare its instantiation `extern template` in its
/// header and define it in the library that owns it: libraries are loaded with local symbols and
/// would otherwise each have one of their own.
template <class T>
class Singleton {
 public:
  static T& Instance() {
    static T object;
    return object;
  }
};
