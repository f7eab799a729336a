# What `cmake --install` and `cpack` deliver. Nothing that is installed holds the place where it lies, so that the tree
# may be moved. The component `runtime` is what programs need to run, `development` what they need to be built.
option(TARVO_INSTALL "Install Tarvo together with the project" ${PROJECT_IS_TOP_LEVEL})
if(NOT TARVO_INSTALL)
    return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
foreach(name LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${name}}")
        message(FATAL_ERROR "CMAKE_INSTALL_${name} must be relative to the folder that is installed to")
    endif()
endforeach()

install(TARGETS Tarvo EXPORT TarvoTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Which headers those are is asked at installation, so that a new include needs no new configuration.
install(CODE "
    set(sources [[${PROJECT_SOURCE_DIR}]])
    include(\${sources}/cmake/TarvoPublicHeaders.cmake)
    tarvo_public_headers(headers \${sources} $<BOOL:${WIN32}>)
    foreach(header IN LISTS headers)
        cmake_path(GET header PARENT_PATH folder)
        file(INSTALL \${sources}/\${header}
            DESTINATION \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}/\${folder})
    endforeach()"
    COMPONENT development)

# The package for CMake. Before 1.0 every minor version may break compatibility.
set(tarvo_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Tarvo)
set(tarvo_compatibility SameMajorVersion)
if(PROJECT_VERSION_MAJOR EQUAL 0)
    set(tarvo_compatibility SameMinorVersion)
endif()
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TarvoConfig.cmake.in ${PROJECT_BINARY_DIR}/TarvoConfig.cmake
    INSTALL_DESTINATION ${tarvo_package_folder}
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarvoConfigVersion.cmake COMPATIBILITY ${tarvo_compatibility})
install(EXPORT TarvoTargets
    NAMESPACE Tarvo:: DESTINATION ${tarvo_package_folder} COMPONENT development)
install(FILES
    ${PROJECT_BINARY_DIR}/TarvoConfig.cmake
    ${PROJECT_BINARY_DIR}/TarvoConfigVersion.cmake
    ${CMAKE_CURRENT_LIST_DIR}/TarvoUnloadable.cmake
    DESTINATION ${tarvo_package_folder} COMPONENT development)

# The package for pkg-config.
set(tarvo_description "C++20 foundation class library")
set(tarvo_pc_plugin_cflags "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
    set(tarvo_pc_plugin_cflags -fno-gnu-unique)
endif()
file(RELATIVE_PATH tarvo_pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" tarvo_pc_prefix "${tarvo_pc_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tarvo.pc.in ${PROJECT_BINARY_DIR}/tarvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarvo.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The debugger views, for gdb and for debuggers that read natvis files.
install(FILES ${PROJECT_SOURCE_DIR}/debug/tarvo_gdb.py ${PROJECT_SOURCE_DIR}/debug/tarvo.natvis
    DESTINATION ${CMAKE_INSTALL_DATADIR}/tarvo/debug COMPONENT development OPTIONAL)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND NOT WIN32)
    # There the system's gdb finds them by the library's own path.
    install(FILES ${PROJECT_SOURCE_DIR}/debug/tarvo_gdb.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME libTarvo.so.${PROJECT_VERSION}-gdb.py COMPONENT development OPTIONAL)
endif()

# Windows programs find DLLs beside them, and those of the compiler are part of what they share with the library.
if(MINGW)
    foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}
            DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    endforeach()
endif()

if(PROJECT_IS_TOP_LEVEL)
    include(${CMAKE_CURRENT_LIST_DIR}/TarvoPackages.cmake)
endif()
