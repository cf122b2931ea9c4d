# Cross compiling for 64-bit ARM Linux (glibc) with Debian's cross compiler:
#   apt-get install g++-aarch64-linux-gnu
# Used by scripts/prebuild.js for prebuilds/linux-arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(TARN_CROSS_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${TARN_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${TARN_CROSS_TRIPLE}-g++)

# Libraries and headers of the target come from the cross sysroot only;
# programs (node, for finding the Node-API headers) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${TARN_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
