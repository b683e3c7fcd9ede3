# Builds for 64-bit Windows with mingw-w64, in its variant with POSIX threads (the other one has no std::thread).
# scripts/windows-deps builds the libraries that are found here, and runs what is built, under Wine.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Windows 10, whatever the default of the mingw-w64 at hand is: all that is linked together has to agree on it.
set(CMAKE_C_FLAGS_INIT -D_WIN32_WINNT=0x0A00)
set(CMAKE_CXX_FLAGS_INIT -D_WIN32_WINNT=0x0A00)

if(DEFINED ENV{CVTP_WINDOWS_DEPS})
    set(CVTP_WINDOWS_DEPS_DEFAULT $ENV{CVTP_WINDOWS_DEPS})
elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(CVTP_WINDOWS_DEPS_DEFAULT $ENV{XDG_CACHE_HOME}/libcvtp/windows-deps)
else()
    set(CVTP_WINDOWS_DEPS_DEFAULT $ENV{HOME}/.cache/libcvtp/windows-deps)
endif()
set(CVTP_WINDOWS_DEPS ${CVTP_WINDOWS_DEPS_DEFAULT} CACHE PATH "Where scripts/windows-deps has put the libraries")

list(APPEND CMAKE_PREFIX_PATH
    ${CVTP_WINDOWS_DEPS}/poco
    ${CVTP_WINDOWS_DEPS}/xerces-c
    ${CVTP_WINDOWS_DEPS}/googletest
    ${CVTP_WINDOWS_DEPS}/cli11
)

# Programs are those of this machine; libraries and headers never are. A folder that the caller adds to
# CMAKE_PREFIX_PATH holds things for Windows as well.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_CURRENT_LIST_DIR}/../scripts/windows-deps --in ${CVTP_WINDOWS_DEPS} --run)
