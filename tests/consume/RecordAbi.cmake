# Writes what the library offers to hosts: symbols, and the layout of all that crosses the interface.
#   ABIDW, PREFIX, LIBRARY, RECORD
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

run("${ABIDW}" --headers-dir "${PREFIX}/include" --drop-private-types --load-all-types
  --suppressions "${CMAKE_CURRENT_LIST_DIR}/abi/not_ours.abignore"
  --no-show-locs --no-comp-dir-path --no-corpus-path --no-elf-needed
  --out-file "${RECORD}" "${LIBRARY}")
