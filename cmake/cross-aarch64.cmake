# arm64 (little-endian); see cmake/cross-common.cmake and scripts/cross.sh.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(QXPLATFORM_TRIPLE aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake")
