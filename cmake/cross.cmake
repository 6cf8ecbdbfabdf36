# Cross building for Linux; arm.cmake and arm64.cmake say for what. Without further settings the host's own cross
# compiler and emulator (Debian's g++-<triplet> and qemu-user-static) are used; scripts/build.js and
# scripts/test-arch.js name private ones instead:
#   VQDB_CROSS_BIN      folder of the cross compiler's programs, with a slash at its end
#   VQDB_CROSS_SYSROOT  the private compiler's root folder
#   VQDB_EMULATOR       command that runs a program of the target (list)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VQDB_CROSS_BIN VQDB_CROSS_SYSROOT)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${VQDB_CROSS_BIN}${VQDB_TRIPLET}-g++)
if(VQDB_CROSS_SYSROOT)
  set(CMAKE_SYSROOT ${VQDB_CROSS_SYSROOT})
endif()
if(VQDB_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VQDB_EMULATOR})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
