# Installs a build of the library into a fresh prefix, moves the prefix elsewhere (nothing in
# it may name the place it was installed to), checks that every installed header includes
# only installed headers, then builds and runs consumer.cpp against the moved prefix: once
# through find_package(Basics) and once through pkg-config with a single compiler call.
#
#   cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DLIBDIR=lib -DINCLUDEDIR=include
#         -DGENERATOR=Ninja -DCXX=/usr/bin/c++ -P run_consumers.cmake
#
# WORK_DIR is emptied first and removed when every step passed; after a failure it is left
# for a look.
cmake_minimum_required(VERSION 3.21)

foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR LIBDIR INCLUDEDIR GENERATOR CXX)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "run_consumers.cmake needs -D${var}=...")
  endif()
endforeach()

# Runs a command; stops with its output when it fails. The command's standard output is left
# in the variable named by OUT_VAR.
function(run_step what out_var)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out
                  ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${what} failed (${status}):\n${ARGN}\n${out}\n${err}")
  endif()
  set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

# The consumer answers one line about the account it added and found again.
function(check_answer how answer)
  if(NOT answer STREQUAL "account 1100 is record 1: Cash at bank\n")
    message(FATAL_ERROR "the consumer built through ${how} answered:\n${answer}")
  endif()
  string(STRIP "${answer}" answer)
  message(STATUS "consumer through ${how}: ${answer}")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(staged ${WORK_DIR}/staged)
set(prefix ${WORK_DIR}/moved)

run_step("installing" ignored ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${staged})
file(RENAME ${staged} ${prefix})

# Installed headers: public ones only, and each "..." include names another installed one.
set(include_dir ${prefix}/${INCLUDEDIR}/basics)
file(GLOB installed RELATIVE ${include_dir} ${include_dir}/*)
if(NOT "Basics.h" IN_LIST installed)
  message(FATAL_ERROR "Basics.h is not installed in ${include_dir}: ${installed}")
endif()
set(faults "")
foreach(header ${installed})
  if(header MATCHES "_internal\\.h$")
    string(APPEND faults "\n  ${header} is internal")
  endif()
  file(STRINGS ${include_dir}/${header} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line ${includes})
    string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*$" "\\1" included "${line}")
    if(NOT included IN_LIST installed)
      string(APPEND faults "\n  ${header} includes \"${included}\", which is not installed")
    endif()
  endforeach()
endforeach()
if(faults)
  message(FATAL_ERROR "installed headers:${faults}")
endif()
list(LENGTH installed header_count)
message(STATUS "${header_count} installed headers include only installed headers")

# Through find_package, the prefix given as CMAKE_PREFIX_PATH.
run_step("configuring the find_package consumer" ignored
         ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake -G ${GENERATOR}
         -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix})
file(STRINGS ${WORK_DIR}/cmake/CMakeCache.txt found_at REGEX "^Basics_DIR:")
if(NOT found_at STREQUAL "Basics_DIR:PATH=${prefix}/${LIBDIR}/cmake/Basics")
  message(FATAL_ERROR "find_package found another copy: ${found_at}")
endif()
run_step("building the find_package consumer" ignored ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
run_step("running the find_package consumer" answer ${WORK_DIR}/cmake/consumer)
check_answer("find_package" "${answer}")

# Through pkg-config, the prefix's pkgconfig directory given as PKG_CONFIG_PATH.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run_step("pkg-config" flags ${PKG_CONFIG} --cflags --libs basics)
separate_arguments(flags UNIX_COMMAND "${flags}")
run_step("compiling the pkg-config consumer" ignored
         ${CXX} ${CONSUMER_DIR}/consumer.cpp -o ${WORK_DIR}/consumer ${flags})
run_step("running the pkg-config consumer" answer ${WORK_DIR}/consumer)
check_answer("pkg-config" "${answer}")

file(REMOVE_RECURSE ${WORK_DIR})
