# Sanitizer and fuzzer builds (docs/reliability.md). Included by the
# top-level CMakeLists.txt before any target is defined, so the flags reach
# every library, program and test, also the processes the e2e tests start.
# The 32-bit ARM build needs nothing here: cmake/arm-linux-gnueabihf.cmake.

set(KIVO_SANITIZE "" CACHE STRING
    "Sanitizers for every target: \"address;undefined\" or \"thread\"; empty for none")
option(KIVO_FUZZ "Build fuzz/ as libFuzzer programs (clang, with ASan and UBSan)" OFF)

if(KIVO_SANITIZE)
  if(KIVO_FUZZ)
    message(FATAL_ERROR "KIVO_FUZZ brings its own sanitizers; leave KIVO_SANITIZE empty")
  endif()
  if("thread" IN_LIST KIVO_SANITIZE AND "address" IN_LIST KIVO_SANITIZE)
    message(FATAL_ERROR "ThreadSanitizer and AddressSanitizer cannot share a build")
  endif()
  list(JOIN KIVO_SANITIZE "," kivo_sanitizers)
  # A report must fail the run, not scroll past: UBSan stops at its first.
  add_compile_options(-fsanitize=${kivo_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${kivo_sanitizers})
  if("thread" IN_LIST KIVO_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC says that TSan cannot see std::atomic_thread_fence (Boost.Asio's
    # handler fences). Clang's TSan cannot either and stays quiet; the
    # platform synchronises through mutexes, which TSan does see.
    add_compile_options(-Wno-tsan)
  endif()
endif()

if(KIVO_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "KIVO_FUZZ needs clang (libFuzzer): -DCMAKE_CXX_COMPILER=clang++ or the fuzz preset")
  endif()
  # Coverage for every library; the fuzzer's main is linked into fuzz/ only.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
