# Language, warnings and instrumentation; the same for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(
  -Wall -Wextra -Wpedantic -Werror
  -Wcast-align -Wcast-qual -Wconversion -Wdouble-promotion -Wextra-semi -Wformat=2
  -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual -Wshadow -Wsign-conversion -Wunused)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wduplicated-branches -Wduplicated-cond -Wlogical-op)
  # g++ 12 reports `"text" + std::string` as overlapping copies (GCC bug 105651).
  add_compile_options(-Wno-restrict)
else()
  # INSTANTIATE_TEST_SUITE_P without a name generator leaves its variadic part empty.
  add_compile_options(-Wno-gnu-zero-variadic-macro-arguments)
endif()

add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
add_compile_options($<$<CONFIG:Release>:-fstack-protector-strong>)
# Nobody replaces functions of the libraries from outside: calls within one are plain calls.
add_compile_options($<$<CONFIG:Release>:-fno-semantic-interposition>)
add_link_options($<$<CONFIG:Release>:-Wl,-Bsymbolic-functions>)
add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
# A function that is looked up at its first call has the vector registers saved to the stack, and
# with them what was copied last: a password. So none is, in any build.
add_link_options(-Wl,-z,relro,-z,now)

if(BRISQ_SANITIZE)
  add_compile_options(-fsanitize=${BRISQ_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${BRISQ_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumentation hides initialisations from g++, as its manual says.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
if(BRISQ_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(BRISQ_COVERAGE)
  add_compile_options(--coverage -fprofile-abs-path)
  add_link_options(--coverage)
endif()

# The sanitizers of clang++ are in the executable alone, so its libraries can't be complete.
if(NOT ((BRISQ_SANITIZE OR BRISQ_FUZZ) AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
  set(BRISQ_COMPLETE_LINK -Wl,--no-undefined)
endif()
