# The installed tree, and what the library exports. A build with sanitizers is not for installation.
if(TARVO_INSTALL AND NOT TARVO_SANITIZE)
    set(arguments --build ${PROJECT_BINARY_DIR} --libdir ${CMAKE_INSTALL_LIBDIR}
        --cmake ${CMAKE_COMMAND} --generator ${CMAKE_GENERATOR} --compiler ${CMAKE_CXX_COMPILER})
    if(CMAKE_TOOLCHAIN_FILE)
        list(APPEND arguments --toolchain ${CMAKE_TOOLCHAIN_FILE})
    endif()
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        list(APPEND arguments --runner ${CMAKE_CROSSCOMPILING_EMULATOR})
    endif()
    tarvo_script_test(tarvo_package package/package.py ${arguments})

    # The list is that of one compiler on one kind of machine.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_SYSTEM_NAME STREQUAL "Linux"
        AND CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
        tarvo_script_test(tarvo_abi ../scripts/check-abi $<TARGET_FILE:Tarvo>)
    endif()
endif()
