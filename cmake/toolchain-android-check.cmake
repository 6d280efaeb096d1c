# Android compile check without an NDK: Debian's aarch64 cross compiler with __ANDROID__ defined, the
# NDK's liblog and property declarations from platform/android, and ANDROID set so the tree takes its
# Android branches. Headers and packages are looked up in the target root only, as the NDK's toolchain
# does. The result links against glibc, so the check inspects what it needs rather than running it.
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-aarch64-linux-gnu.cmake)
unset(CMAKE_CROSSCOMPILING_EMULATOR)
set(ANDROID TRUE)
set(VAI_ANDROID_CHECK TRUE)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
get_filename_component(_vai_android_include ${CMAKE_CURRENT_LIST_DIR}/../platform/android/include ABSOLUTE)
set(CMAKE_C_FLAGS_INIT "-D__ANDROID__ -isystem ${_vai_android_include}")
set(CMAKE_CXX_FLAGS_INIT "-D__ANDROID__ -isystem ${_vai_android_include}")
