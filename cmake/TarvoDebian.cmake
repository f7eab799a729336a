# Two packages, as Debian has them: the library under the name of its soname, so that versions that are not compatible
# can be there together, and what clients are built with.
set(tarvo_debian_version ${PROJECT_VERSION}-1)
set(tarvo_debian_library libtarvo${tarvo_soversion})
set(tarvo_debian_folder ${PROJECT_BINARY_DIR}/debian)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The packages that the library needs are read from it. `shlibs` tells those who build packages with it which one it is
# in, and `triggers` has the loader's cache made anew, as the scripts do that cpack adds by itself.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${tarvo_debian_library})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${tarvo_description}
The library that programs need to run: shared ownership, run-time
types, exceptions that report themselves, contracts, containers, streams,
stored objects, locks, events, a thread pool and timers.")
file(WRITE ${tarvo_debian_folder}/shlibs
    "libTarvo ${tarvo_soversion} ${tarvo_debian_library} (>= ${PROJECT_VERSION})\n")
file(WRITE ${tarvo_debian_folder}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${tarvo_debian_folder}/shlibs ${tarvo_debian_folder}/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarvo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${tarvo_description} - development files
Headers, the packages for CMake and pkg-config, and views for debuggers.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${tarvo_debian_library} (= ${tarvo_debian_version})")

# Every package explains under what terms it is given, and what has changed.
string(TIMESTAMP tarvo_debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${tarvo_debian_folder}/changelog.Debian
    "tarvo (${tarvo_debian_version}) unstable; urgency=medium\n\n"
    "  * Tarvo ${PROJECT_VERSION}.\n\n"
    " -- ${TARVO_PACKAGE_MAINTAINER}  ${tarvo_debian_date}\n")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/TarvoDebianDocuments.cmake)
set(CPACK_TARVO_SOURCES ${PROJECT_SOURCE_DIR})
set(CPACK_TARVO_DEBIAN_FOLDER ${tarvo_debian_folder})
