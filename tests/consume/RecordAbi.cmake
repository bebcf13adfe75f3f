# Writes what the library offers to hosts: symbols, and the layout of all that crosses the interface.
# SCOPE: --load-all-types, those that no function names too, or --exported-interfaces-only.
#   ABIDW, PREFIX, LIBRARY, RECORD, SCOPE, IGNORED
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

run("${ABIDW}" --headers-dir "${PREFIX}/include" --drop-private-types "${SCOPE}"
  --suppressions "${IGNORED}"
  --no-show-locs --no-comp-dir-path --no-corpus-path --no-elf-needed
  --out-file "${RECORD}" "${LIBRARY}")
