# Where things go when they are installed, and what other projects find them with.

include(CMakePackageConfigHelpers)

set(cvtp_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/libcvtp)
set(cvtp_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cvtp)

install(TARGETS cvtp EXPORT cvtpTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

# Every header directly in cvtp/ is public; of the other folders, only those that public headers include.
install(DIRECTORY cvtp/ DESTINATION ${cvtp_include_dir}/cvtp
    FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)
install(FILES io/CvPipe.h io/Exceptions.h io/PipeBufferBase.h io/ServerCvPipe.h
    DESTINATION ${cvtp_include_dir}/io)
install(FILES support/Export.h support/Utf8String.h
    DESTINATION ${cvtp_include_dir}/support)

install(EXPORT cvtpTargets NAMESPACE cvtp:: DESTINATION ${cvtp_package_dir})
configure_package_config_file(cmake/cvtpConfig.cmake.in ${PROJECT_BINARY_DIR}/cvtpConfig.cmake
    INSTALL_DESTINATION ${cvtp_package_dir})
# Before 1.0.0 each minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cvtpConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cvtpConfig.cmake ${PROJECT_BINARY_DIR}/cvtpConfigVersion.cmake
    DESTINATION ${cvtp_package_dir})

# The file finds its prefix by its own place, so an installed copy may be moved.
file(RELATIVE_PATH cvtp_pc_to_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" cvtp_pc_to_prefix "${cvtp_pc_to_prefix}")
configure_file(cmake/libcvtp.pc.in ${PROJECT_BINARY_DIR}/libcvtp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libcvtp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Side by side, as the first names the second.
install(FILES examples/CvtpConfig.xml docs/CvtpConfig.xsd DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(CVTP_BUILD_TOOLS)
    install(TARGETS cvtp_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Makes the pipe folder of all users at each start. systemd looks in lib below /usr and /usr/local, whatever the folder of
# the libraries is.
if(CMAKE_SYSTEM_NAME STREQUAL Linux)
    install(FILES packaging/tmpfiles.d/libcvtp.conf DESTINATION lib/tmpfiles.d)
endif()

if(WIN32)
    include(cmake/WindowsPackage.cmake)
endif()
