# 32-bit ARM: ARMv7, hard float.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(VQDB_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
