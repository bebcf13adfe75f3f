# A project that embeds the source tree gets the library, and keeps its own settings.
#   SCRATCH, SOURCE, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# No build type: it is the host's to choose, and this host chooses none.
build_and_run(add_subdirectory "${CMAKE_CURRENT_LIST_DIR}/host.cpp"
  "-DALG_FACTORY_SOURCE=${SOURCE}")

foreach(option IN ITEMS eigen EIGEN -ffp-contract -fno-math-errno -Wall -fvisibility)
  if(command MATCHES "${option}")
    fail("the library's ${option} reached its host: ${command}")
  endif()
endforeach()
