# Compile options of this project's own targets. They stay on the targets: a host that embeds the
# library keeps its own flags.
add_library(alg_compile_options INTERFACE)
target_compile_features(alg_compile_options INTERFACE cxx_std_17)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(alg_compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wimplicit-fallthrough
    $<$<BOOL:${ALG_FACTORY_WERROR}>:-Werror>
    # Fused multiply-add would change the last bit from one processor to another.
    -ffp-contract=off
    # Nobody reads errno after sqrt; without it loops over sqrt can be vectorised. Same bits.
    -fno-math-errno
    # Compiled in bulk, a file's unnamed namespace looks like a header's.
    $<$<AND:$<BOOL:${CMAKE_UNITY_BUILD}>,$<CXX_COMPILER_ID:GNU>>:-Wno-subobject-linkage>)
endif()

# What makes a mistake harder to use for an attack, as far as the compiler has it. Same results.
if(ALG_FACTORY_HARDEN AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  include(CheckCXXCompilerFlag)
  foreach(option IN ITEMS stack-protector-strong stack-clash-protection cf-protection)
    string(MAKE_C_IDENTIFIER "ALG_HAS_${option}" known)
    check_cxx_compiler_flag("-f${option}" ${known})
    # On Windows stack frames have the system's own probes.
    if(${known} AND NOT (WIN32 AND option STREQUAL "stack-clash-protection"))
      target_compile_options(alg_compile_options INTERFACE "-f${option}")
    endif()
  endforeach()
  target_compile_options(alg_compile_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(alg_compile_options INTERFACE LINKER:-z,relro,-z,now)
  elseif(WIN32)
    # What the check of the stack calls is in a library of its own there.
    target_link_options(alg_compile_options INTERFACE -fstack-protector-strong)
  endif()
endif()

# A target that uses precompiled headers, in a way that ccache understands.
function(alg_use_precompiled target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  endif()
endfunction()
