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
    -fno-math-errno)
endif()
