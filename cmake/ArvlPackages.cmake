# Finds the packages that the project builds with. The error for a missing package names the Debian
# package that contains it.

find_package(PkgConfig QUIET)

function(arvl_missing what debian_package)
  message(FATAL_ERROR "${what} was not found. On Debian: apt-get install ${debian_package}")
endfunction()

# JsonCpp::JsonCpp
macro(arvl_require_jsoncpp)
  find_package(jsoncpp QUIET)
  if(NOT TARGET JsonCpp::JsonCpp)
    arvl_missing("JsonCpp" libjsoncpp-dev)
  endif()
endmacro()

# PkgConfig::<prefix>, for a pkg-config module
macro(arvl_require_module prefix module what debian_package)
  if(NOT PkgConfig_FOUND)
    arvl_missing("pkg-config" pkg-config)
  endif()
  pkg_check_modules(${prefix} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${prefix}_FOUND)
    arvl_missing("${what}" ${debian_package})
  endif()
endmacro()

# PkgConfig::LIBEVENT_CORE
macro(arvl_require_libevent)
  arvl_require_module(LIBEVENT_CORE libevent_core>=2.1 "libevent 2.1 (core)" libevent-dev)
endmacro()

# PkgConfig::LIBCRYPTO
macro(arvl_require_libcrypto)
  arvl_require_module(LIBCRYPTO libcrypto>=3.0 "libcrypto" libssl-dev)
endmacro()

# PkgConfig::SQLITE3
macro(arvl_require_sqlite)
  arvl_require_module(SQLITE3 sqlite3 "SQLite" libsqlite3-dev)
endmacro()

# CLI11::CLI11
macro(arvl_require_cli11)
  find_package(CLI11 QUIET)
  if(NOT CLI11_FOUND)
    arvl_missing("CLI11" libcli11-dev)
  endif()
endmacro()

# GTest::gtest_main
macro(arvl_require_googletest)
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    arvl_missing("GoogleTest" libgtest-dev)
  endif()
  include(GoogleTest)
endmacro()

# benchmark::benchmark
macro(arvl_require_benchmark)
  find_package(benchmark QUIET)
  if(NOT benchmark_FOUND)
    arvl_missing("Google Benchmark" libbenchmark-dev)
  endif()
endmacro()
