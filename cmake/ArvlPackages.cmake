# Finds the packages that the project builds with. A missing one is named together with the Debian
# package that brings it.

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

# PkgConfig::LIBEVENT_CORE
macro(arvl_require_libevent)
  if(NOT PkgConfig_FOUND)
    arvl_missing("pkg-config" pkg-config)
  endif()
  pkg_check_modules(LIBEVENT_CORE QUIET IMPORTED_TARGET GLOBAL libevent_core>=2.0)
  if(NOT LIBEVENT_CORE_FOUND)
    arvl_missing("libevent (core)" libevent-dev)
  endif()
endmacro()

# PkgConfig::LIBCRYPTO
macro(arvl_require_openssl)
  if(NOT PkgConfig_FOUND)
    arvl_missing("pkg-config" pkg-config)
  endif()
  pkg_check_modules(LIBCRYPTO QUIET IMPORTED_TARGET GLOBAL libcrypto>=3.0)
  if(NOT LIBCRYPTO_FOUND)
    arvl_missing("OpenSSL's libcrypto" libssl-dev)
  endif()
endmacro()

# PkgConfig::SQLITE3
macro(arvl_require_sqlite)
  if(NOT PkgConfig_FOUND)
    arvl_missing("pkg-config" pkg-config)
  endif()
  pkg_check_modules(SQLITE3 QUIET IMPORTED_TARGET GLOBAL sqlite3)
  if(NOT SQLITE3_FOUND)
    arvl_missing("SQLite" libsqlite3-dev)
  endif()
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
