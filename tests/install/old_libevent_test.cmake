# The error for a too old libevent names it. WORK_DIR gets the pkg-config module of an old version.
file(WRITE ${WORK_DIR}/libevent_core.pc
     "Name: libevent_core\nDescription: an old one\nVersion: 2.0.22-stable\nLibs: -levent_core\n")
set(ENV{PKG_CONFIG_LIBDIR} ${WORK_DIR})
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/ArvlPackages.cmake)
arvl_require_libevent()
