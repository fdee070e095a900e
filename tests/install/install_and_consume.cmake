# Installs the build into a scratch prefix, builds the host example against the
# installed package twice (CMake package, pkg-config) and runs the tools and the
# example against the installed simulated runtime.
# Arguments: BUILD_DIR, SOURCE_DIR, WORK_DIR, CXX, LIBDIR, and HOST_FLAGS (the build's
# sanitizer flags, for the hosts; may be empty).
set(prefix ${WORK_DIR}/prefix)
set(example ${SOURCE_DIR}/docs/example/host_example.cpp)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

function(expect text where)
  string(FIND "${run_output}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "expected \"${text}\" in ${where}:\n${run_output}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
set(runtime_dir ${prefix}/${LIBDIR}/hyln/domino)
foreach(installed
    ${LIBDIR}/cmake/HYLNTool/HYLNToolConfig.cmake ${LIBDIR}/cmake/HYLNTool/HYLNToolConfigVersion.cmake
    ${LIBDIR}/pkgconfig/HYLNTool.pc include/HYLNTool/HYLNTool.h include/HYLNTool/HYLNTool_EntryPoints.def
    ${LIBDIR}/libHYLNTool.so.1 bin/hyln bin/hyln-seed ${LIBDIR}/hyln/domino/notes/latest/linux/libnotes.so)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()

# The installed tools find the installed runtime from where they lie.
run(${prefix}/bin/hyln-seed --dir ${WORK_DIR}/data --users 3 --messages 1 --seed 5)
run(${prefix}/bin/hyln --version)
expect("runtime: ${runtime_dir}" "hyln --version")
run(${prefix}/bin/hyln --data ${WORK_DIR}/data discover databases)
expect("mail/" "hyln discover databases")

# A host built with the CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${WORK_DIR}/cmake-host
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DHOST_EXAMPLE_SOURCE=${example}
  "-DCMAKE_CXX_FLAGS=${HOST_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-host)
run(${WORK_DIR}/cmake-host/host_example ${runtime_dir} ${WORK_DIR}/data)
expect("names.nsf" "the CMake-built host's output")

# A host built with pkg-config.
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(pkg-config --cflags --libs HYLNTool)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(host_flags UNIX_COMMAND "${HOST_FLAGS}")
run(${CXX} -std=c++17 ${host_flags} ${example} ${flags} -Wl,-rpath,${prefix}/${LIBDIR} -o ${WORK_DIR}/pkg-host)
run(${WORK_DIR}/pkg-host ${runtime_dir} ${WORK_DIR}/data)
expect("names.nsf" "the pkg-config-built host's output")
