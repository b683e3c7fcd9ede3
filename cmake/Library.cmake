# The shared library, made of the objects of all layers.

add_library(cvtp SHARED)
add_library(cvtp::cvtp ALIAS cvtp)
target_link_libraries(cvtp
    PRIVATE cvtp_core cvtp_messages cvtp_io cvtp_base cvtp_support Threads::Threads
    PUBLIC Poco::Foundation)
if(CVTP_WHOLE_PROGRAM)
    target_link_options(cvtp PRIVATE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-flto=auto>)
endif()
if(direct_calls)
    target_link_options(cvtp PRIVATE -Wl,-Bsymbolic-functions)
endif()
target_compile_features(cvtp PUBLIC cxx_std_17)
target_include_directories(cvtp INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/libcvtp>)
set_target_properties(cvtp PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE CXX)
if(WIN32)
    # The same name whichever compiler has built it; by itself that of Microsoft would leave "lib" out.
    set_target_properties(cvtp PROPERTIES PREFIX lib IMPORT_PREFIX lib)
endif()

# Hidden visibility leaves the instantiations of the standard library's templates visible; the version script hides
# these as well.
if(NOT WIN32 AND NOT APPLE)
    set(version_script ${PROJECT_SOURCE_DIR}/cmake/libcvtp.map)
    target_link_options(cvtp PRIVATE -Wl,--version-script=${version_script})
    set_property(TARGET cvtp APPEND PROPERTY LINK_DEPENDS ${version_script})
endif()
