# How every target of the project is compiled.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Windows looks for DLLs in the folder of the program, so all programs and the DLL go to one.
if(WIN32 AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endif()

set(werror ${PROJECT_IS_TOP_LEVEL})
if(MSVC)
    # Nobody has seen yet what it warns of.
    set(werror OFF)
endif()
option(CVTP_WERROR "Treat warnings as errors" ${werror})
set(CVTP_SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined or thread")
option(CVTP_COVERAGE "Build for a coverage report" OFF)

if(MSVC)
    # 4251 and 4275: members and base classes of the standard library in exported classes; user and library are built
    # with the same one. 4458: parameters of constructors that bear the name of the member they set. 5030: attributes of
    # other compilers, which it is to ignore.
    add_compile_options(/W4 /wd4251 /wd4275 /wd4458 /wd5030 /utf-8)
    # fopen and the like are meant.
    add_compile_definitions(_CRT_SECURE_NO_WARNINGS)
else()
    add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow=local -Wnon-virtual-dtor
                        -Woverloaded-virtual -Wformat=2 -Wundef)
endif()
if(WIN32)
    # The system's header without what nothing here needs, and without macros that break the standard library's names.
    add_compile_definitions(NOMINMAX WIN32_LEAN_AND_MEAN)
endif()
if(CVTP_WERROR)
    set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
endif()
if(CVTP_SANITIZE)
    add_compile_options(-fsanitize=${CVTP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${CVTP_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # What a sanitizer puts in makes this warning speak up about the standard library's own code.
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
endif()
if(CVTP_COVERAGE)
    add_compile_options(--coverage)
    add_link_options(--coverage)
endif()

# With all sources of the library in view the compiler saves a twentieth of the time of a round trip. Only where it
# was seen to: other compilers and Windows go without. The objects are also complete without it, so that the tests,
# which link them too, do not do that work once more for each program.
set(whole_program OFF)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32 AND NOT CVTP_SANITIZE AND NOT CVTP_COVERAGE)
    set(whole_program ON)
endif()
option(CVTP_WHOLE_PROGRAM "Optimise the library as a whole in release builds" ${whole_program})

# Nobody replaces a function of the library by one of his own, so its functions call each other directly, and those of
# other libraries without the detour of a table of stubs. Both together save a sixth of the library's time in a message.
set(direct_calls OFF)
if(NOT MSVC AND NOT WIN32 AND NOT APPLE)
    set(direct_calls ON)
endif()

# A layer of the library: an object library that may include what stands below the repository's root.
function(cvtp_add_layer name)
    add_library(${name} OBJECT ${ARGN})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_compile_definitions(${name} PRIVATE CVTP_BUILDING)
    target_link_libraries(${name} PUBLIC Poco::Foundation Threads::Threads)
    if(direct_calls)
        target_compile_options(${name} PRIVATE -fno-plt -fno-semantic-interposition)
    endif()
    if(CVTP_WHOLE_PROGRAM)
        target_compile_options(${name} PRIVATE
            $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-flto=auto -ffat-lto-objects>)
    endif()
endfunction()
