# A host that knows the installed tree only, and links what of the kit is installed: as a CMake
# project, then component by component with the flags that pkg-config gives for it alone.
#   PREFIX, LIBDIR, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS, BUILD_TYPE,
#   PKG_CONFIG
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

build_and_run(kit "${CMAKE_CURRENT_LIST_DIR}/kit_host.cpp" "-DCMAKE_PREFIX_PATH=${PREFIX}"
  "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

if(PKG_CONFIG AND NOT FLAGS MATCHES "-fsanitize")
  # Beside the system's, which has those of SQLite and others.
  set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_CFLAGS} 1)
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_LIBS} 1)
  set(folder "${SCRATCH}")
  # Component, header, and a statement that pulls in what the component needs.
  foreach(use IN ITEMS
      "text TextFile.h const volatile auto used = &text::quoted"
      "session Player.h const volatile auto used = &session::Player::play"
      "estimate Smoother.h const volatile auto used = &estimate::Smoother::run"
      "calibration CalibrationFile.h const volatile auto used = &calibration::readCalibration"
      "stream McapExport.h const volatile auto used = &stream::exportMcap"
      "stream_network OscSender.h const stream::OscSender used{stream::OscOptions()}")
    string(REGEX MATCH "^([a-z_]+) ([A-Za-z.]+) (.*)$" parts "${use}")
    set(component "${CMAKE_MATCH_1}")
    set(header "${CMAKE_MATCH_2}")
    set(statement "${CMAKE_MATCH_3}")
    if(NOT EXISTS "${PREFIX}/${LIBDIR}/pkgconfig/alg_factory-${component}.pc")
      if(component STREQUAL "stream_network")
        continue()  # its libraries were not there when the project was built
      endif()
      fail("no alg_factory-${component}.pc")
    endif()
    string(REPLACE "stream_network" "stream" include "${component}")
    set(SCRATCH "${folder}/pkg-config/${component}")
    set(source "${folder}/pkg-config-${component}.cpp")
    file(WRITE "${source}"
      "#include <alg_kit/${include}/${header}>\nint main() {\n  ${statement};\n  (void)used;\n}\n")
    run("${PKG_CONFIG}" --cflags --libs alg_factory-${component})
    string(STRIP "${output}" output)
    separate_arguments(flags UNIX_COMMAND "${output}")
    compile_plainly("${SCRATCH}/consumer" flags "${source}")
    set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
    run("${SCRATCH}/consumer")
  endforeach()
endif()
