# IBM Z (big-endian); see cmake/cross-common.cmake and scripts/cross.sh.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(QXPLATFORM_TRIPLE s390x-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake")
