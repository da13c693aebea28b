# Installs the built library into a scratch prefix, then builds and runs a
# consumer through find_package(ORBTexLib) and through pkg-config.
# Variables: BUILD_DIR, SOURCE_DIR, WORK_DIR, CXX_COMPILER, CXX_FLAGS.

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(header ORBTexture.h ORBTextureHeader.h ORBTextureFormat.h ORBTextureInfo.h Tools/ORBTString.h)
  if(NOT EXISTS ${prefix}/include/ORBTexLib/${header})
    message(FATAL_ERROR "missing installed header ${header}")
  endif()
endforeach()

# The tool, where it is built, comes with its manual page.
if(EXISTS ${prefix}/bin/orbtex)
  if(NOT EXISTS ${prefix}/share/man/man1/orbtex.1)
    message(FATAL_ERROR "orbtex installed without its manual page")
  endif()
  run(${prefix}/bin/orbtex --version)
endif()

# Every installed header stands alone on the installed tree: none includes
# a header that stays in the source tree.
file(GLOB_RECURSE installed_headers RELATIVE ${prefix}/include/ORBTexLib ${prefix}/include/ORBTexLib/*.h)
foreach(header ${installed_headers})
  file(WRITE ${WORK_DIR}/header-check.cpp "#include \"${header}\"\n")
  run(${CXX_COMPILER} -std=c++17 -fsyntax-only -I${prefix}/include/ORBTexLib ${WORK_DIR}/header-check.cpp)
endforeach()

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -B ${WORK_DIR}/consumer-build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer-build)
run(${WORK_DIR}/consumer-build/consumer ${WORK_DIR}/from-cmake.orb)

# pkg-config
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc_files ${prefix}/*/ORBTexLib.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs ORBTexLib
                  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know ORBTexLib")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  separate_arguments(extra UNIX_COMMAND "${CXX_FLAGS}")
  string(REGEX MATCH "-L[^ ;]+" libdir_flag "${flags}")
  string(SUBSTRING "${libdir_flag}" 2 -1 libdir)
  run(${CXX_COMPILER} ${extra} ${SOURCE_DIR}/consumer/main.cpp ${flags} -Wl,-rpath,${libdir} -o ${WORK_DIR}/consumer-pc)
  run(${WORK_DIR}/consumer-pc ${WORK_DIR}/from-pkgconfig.orb)
endif()
