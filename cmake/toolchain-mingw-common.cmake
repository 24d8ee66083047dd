# Shared part of the MinGW-w64 toolchain files; TARVO_MINGW_TRIPLE and
# CMAKE_SYSTEM_PROCESSOR are set by the including file.
set(CMAKE_SYSTEM_NAME Windows)

find_program(CMAKE_C_COMPILER ${TARVO_MINGW_TRIPLE}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER ${TARVO_MINGW_TRIPLE}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER ${TARVO_MINGW_TRIPLE}-windres REQUIRED)
find_program(CMAKE_OBJDUMP ${TARVO_MINGW_TRIPLE}-objdump)

# Look for libraries and headers in the target's sysroot only; programs
# (python3, the resource generator) still come from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${TARVO_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's own runtime (libgcc, libstdc++, winpthread) goes into every
# module and program, so that they need nothing beyond the system DLLs.
set(TARVO_STATIC_RUNTIME_FLAGS "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${TARVO_STATIC_RUNTIME_FLAGS}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${TARVO_STATIC_RUNTIME_FLAGS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${TARVO_STATIC_RUNTIME_FLAGS}")
