# Pages that programs carry. npm provides the packages and the bundler, once per build folder; a
# page becomes a C++ source. Where that is not possible the source holds no page, and the command
# that needs it says so; with ALG_FACTORY_REQUIRE_TOOLS the build fails.
find_program(ALG_NODE node)
find_program(ALG_NPM npm)
mark_as_advanced(ALG_NODE ALG_NPM)

#   alg_built_in_page(PAGE namespace N function F header H source VARIABLE)
# Of the page web/PAGE: the C++ source with N::F() in it, which H declares.
function(alg_built_in_page page)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "namespace;function;header;source" "")
  set(output "${CMAKE_CURRENT_BINARY_DIR}/BuiltIn_${page}.cpp")
  set(web "${PROJECT_SOURCE_DIR}/web")
  file(GLOB page_files CONFIGURE_DEPENDS "${web}/common/*" "${web}/${page}/*")
  set(script "${PROJECT_SOURCE_DIR}/cmake/AlgMakePage.cmake")
  add_custom_command(
    OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}"
      "-DNODE=${ALG_NODE}" "-DNPM=${ALG_NPM}" "-DSOURCE=${web}" "-DPAGE=${page}"
      "-DNAMESPACE=${arg_namespace}" "-DFUNCTION=${arg_function}" "-DHEADER=${arg_header}"
      "-DWORK=${PROJECT_BINARY_DIR}/npm" "-DOUTPUT=${output}"
      "-DREQUIRED=${ALG_FACTORY_REQUIRE_TOOLS}" -P "${script}"
    DEPENDS ${page_files} "${script}" "${web}/build.mjs" "${web}/package.json"
      "${web}/package-lock.json" "${web}/.npmrc"
    COMMENT "Making the page ${page}"
    VERBATIM)
  set(${arg_source} "${output}" PARENT_SCOPE)
endfunction()
