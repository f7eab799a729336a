# What `cpack` makes: packages for Debian of a Linux build, an archive of a Windows one.
set(TARVO_PACKAGE_MAINTAINER "The Tarvo maintainers <maintainers@tarvo.invalid>" CACHE STRING
    "Who answers for the packages, as \"name <address>\"")

set(CPACK_PACKAGE_NAME tarvo)
set(CPACK_PACKAGE_VENDOR Tarvo)
set(CPACK_PACKAGE_CONTACT "${TARVO_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL runtime development)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME tarvo-${PROJECT_VERSION}-windows-${CMAKE_SYSTEM_PROCESSOR})
else()
    set(CPACK_GENERATOR DEB)
    include(${CMAKE_CURRENT_LIST_DIR}/TarvoDebian.cmake)
endif()

include(CPack)
