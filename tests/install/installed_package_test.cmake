# Installs the build tree to a separate prefix, and builds and runs a consumer against that copy: as
# a CMake package and as a pkg-config module.
#
# cmake -DBUILD_DIR= -DWORK_DIR= -DLIBDIR= -DMANDIR= -DDATADIR= -DHOST= -DGENERATOR= -DCXX=
#     [-DCXX_FLAGS=] -P this file

set(prefix ${WORK_DIR}/prefix)
set(consumer ${CMAKE_CURRENT_LIST_DIR}/consumer)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${status}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# Runs the program, which must have found both libraries in the prefix.
function(check_consumer program)
  run(${program})
  run(ldd ${program})
  foreach(library libzarnarvl-app.so.1 libzarnbackup-util.so.1)
    string(FIND "${output}" "${library} => ${prefix}/" at)
    if(at EQUAL -1)
      message(FATAL_ERROR "${program} does not take ${library} from ${prefix}:\n${output}")
    endif()
  endforeach()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

run(${CMAKE_COMMAND} -S ${consumer} -B ${WORK_DIR}/by-cmake -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/by-cmake)
check_consumer(${WORK_DIR}/by-cmake/consumer)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs zarnarvl-app)
separate_arguments(package_flags UNIX_COMMAND "${output}")
separate_arguments(flags UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} -std=c++17 ${flags} ${consumer}/main.cpp -o ${WORK_DIR}/by-pkg-config
    ${package_flags} -Wl,-rpath,${prefix}/${LIBDIR})
check_consumer(${WORK_DIR}/by-pkg-config)

foreach(variable IN ITEMS libdir includedir)
  run(pkg-config --variable=${variable} zarnarvl-app)
  string(STRIP "${output}" directory)
  file(REAL_PATH "${directory}" directory)
  string(FIND "${directory}" "${prefix}/" at)
  if(NOT at EQUAL 0)
    message(FATAL_ERROR "pkg-config gives ${variable} as ${directory}, which is not in ${prefix}")
  endif()
endforeach()

if(HOST)
  foreach(file ${MANDIR}/man1/arvl-host.1 ${DATADIR}/bash-completion/completions/arvl-host)
    if(NOT EXISTS ${prefix}/${file})
      message(FATAL_ERROR "${file} has not been installed")
    endif()
  endforeach()
endif()
