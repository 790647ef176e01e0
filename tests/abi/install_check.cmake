# Installs the library into a scratch prefix and uses it the ways the README documents.
#   MODE=stage      install with `cmake --install --prefix` and check what landed there
#   MODE=cmake      build and run a consumer project that uses find_package(vexor)
#   MODE=pkgconfig  compile and run the same consumer with `pkg-config --cflags --libs vexor`
# Common: -DWORK=<scratch dir> -DVERSION=<x.y.z>; see each mode for the rest.
cmake_minimum_required(VERSION 3.25)

set(prefix "${WORK}/prefix")
unset(ENV{LD_LIBRARY_PATH})  # the consumers must find the installed library on their own

function(run)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "WHAT" "COMMAND")
  execute_process(COMMAND ${arg_COMMAND}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " shown "${arg_COMMAND}")
    message(FATAL_ERROR "${arg_WHAT} failed (${result}):\n${shown}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

if(MODE STREQUAL "stage")
  # -DBUILD_DIR=<build tree> -DLIBDIR=<lib dir relative to the prefix>
  file(REMOVE_RECURSE "${WORK}")
  run(WHAT "install" COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")

  # The library with its SONAME link and development link.
  string(REGEX MATCH "^[0-9]+" major "${VERSION}")
  set(lib "${prefix}/${LIBDIR}/libvexor.so")
  foreach(link IN ITEMS "${lib}" "${lib}.${major}")
    if(NOT IS_SYMLINK "${link}")
      message(FATAL_ERROR "${link} is missing or not a symbolic link")
    endif()
  endforeach()
  foreach(path IN ITEMS "${lib}.${VERSION}" "${prefix}/include/vexor/vexor.h"
      "${prefix}/include/vexor/export.h" "${prefix}/${LIBDIR}/cmake/vexor/vexorConfig.cmake"
      "${prefix}/${LIBDIR}/cmake/vexor/vexorConfigVersion.cmake"
      "${prefix}/${LIBDIR}/pkgconfig/vexor.pc")
    if(NOT EXISTS "${path}")
      message(FATAL_ERROR "not installed: ${path}")
    endif()
  endforeach()

  # The test-only archive and object library stay out of the prefix and the package.
  file(GLOB_RECURSE archives "${prefix}/*.a")
  if(archives)
    message(FATAL_ERROR "static archives were installed: ${archives}")
  endif()
  file(GLOB target_files "${prefix}/${LIBDIR}/cmake/vexor/vexorTargets*.cmake")
  foreach(target_file IN LISTS target_files)
    file(READ "${target_file}" content)
    if(content MATCHES "vexor_objects|vexor_static")
      message(FATAL_ERROR "${target_file} refers to a build-only target")
    endif()
  endforeach()

  # The program runs from the prefix, finding the library through its install RPATH.
  run(WHAT "the installed vexor program" COMMAND "${prefix}/bin/vexor" --version)
  if(NOT run_output STREQUAL "vexor ${VERSION}\n")
    message(FATAL_ERROR "installed `vexor --version` printed '${run_output}'")
  endif()

elseif(MODE STREQUAL "cmake")
  # -DSOURCE=<consumer project> -DGENERATOR=... -DMAKE_PROGRAM=... -DC_COMPILER=... -DC_FLAGS=...
  set(build "${WORK}/cmake-consumer")
  file(REMOVE_RECURSE "${build}")
  run(WHAT "configuring the find_package consumer" COMMAND "${CMAKE_COMMAND}"
    -S "${SOURCE}" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}"
    "-DCMAKE_C_COMPILER=${C_COMPILER}"
    "-DCMAKE_C_FLAGS=${C_FLAGS}"
    "-DCMAKE_PREFIX_PATH=${prefix}"
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
    -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF
    "-DVEXOR_EXPECTED_VERSION=${VERSION}"
    "-DVEXOR_EXPECTED_PREFIX=${prefix}")
  run(WHAT "building the find_package consumer" COMMAND "${CMAKE_COMMAND}" --build "${build}")
  run(WHAT "running the find_package consumer" COMMAND "${build}/consumer" "${VERSION}")

elseif(MODE STREQUAL "pkgconfig")
  # -DSOURCE=<consumer.c> -DPKG_CONFIG=... -DLIBDIR=... -DC_COMPILER=... -DC_FLAGS=...
  set(build "${WORK}/pkgconfig-consumer")
  file(REMOVE_RECURSE "${build}")
  file(MAKE_DIRECTORY "${build}")
  # Only the prefix under test is searched.
  set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
  set(ENV{PKG_CONFIG_LIBDIR} "${prefix}/${LIBDIR}/pkgconfig")

  run(WHAT "pkg-config --modversion" COMMAND "${PKG_CONFIG}" --modversion vexor)
  string(STRIP "${run_output}" modversion)
  if(NOT modversion STREQUAL VERSION)
    message(FATAL_ERROR "vexor.pc says version '${modversion}', expected ${VERSION}")
  endif()
  run(WHAT "pkg-config --variable=libdir" COMMAND "${PKG_CONFIG}" --variable=libdir vexor)
  string(STRIP "${run_output}" libdir)
  file(REAL_PATH "${libdir}" libdir_real)
  file(REAL_PATH "${prefix}/${LIBDIR}" expected_real)
  if(NOT libdir_real STREQUAL expected_real)
    message(FATAL_ERROR "vexor.pc names libdir '${libdir}', not the prefix's ${expected_real}")
  endif()
  run(WHAT "pkg-config --cflags --libs" COMMAND "${PKG_CONFIG}" --cflags --libs vexor)
  separate_arguments(pkg_flags UNIX_COMMAND "${run_output}")
  separate_arguments(c_flags UNIX_COMMAND "${C_FLAGS}")

  run(WHAT "compiling the pkg-config consumer" COMMAND "${C_COMPILER}" ${c_flags}
    -std=c99 -Wall -Wextra -pedantic -Werror "${SOURCE}" ${pkg_flags} "-Wl,-rpath,${libdir}"
    -o "${build}/consumer")
  run(WHAT "running the pkg-config consumer" COMMAND "${build}/consumer" "${VERSION}")

else()
  message(FATAL_ERROR "unknown MODE '${MODE}'")
endif()
