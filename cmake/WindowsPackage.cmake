# The zip for Windows: besides what is installed anywhere, the DLLs that library and program need, and the headers and
# import library of Poco that the public headers include. Wherever it is unpacked, cvtp.exe runs and other projects
# build. What the DLLs are passed on under lies in licenses/.

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME libcvtp-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_CHECKSUM SHA256)
include(CPack)

# With another compiler the libraries come from elsewhere, and so do their DLLs.
if(NOT CVTP_WINDOWS_DEPS)
    return()
endif()

install(DIRECTORY ${CVTP_WINDOWS_DEPS}/runtime/licenses DESTINATION .)
install(DIRECTORY ${CVTP_WINDOWS_DEPS}/poco/include ${CVTP_WINDOWS_DEPS}/poco/lib ${CVTP_WINDOWS_DEPS}/poco/cmake
    DESTINATION .)

set(cvtp_needing_dlls "\"$<TARGET_FILE:cvtp>\"")
if(CVTP_BUILD_TOOLS)
    string(APPEND cvtp_needing_dlls " \"$<TARGET_FILE:cvtp_tool>\"")
endif()
install(CODE "
    execute_process(
        COMMAND \"${PROJECT_SOURCE_DIR}/scripts/windows-deps\" --in \"${CVTP_WINDOWS_DEPS}\"
            --list-dlls ${cvtp_needing_dlls}
        OUTPUT_VARIABLE needed OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    string(REPLACE \"\\n\" \";\" needed \"\${needed}\")
    file(INSTALL \${needed} DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
")
