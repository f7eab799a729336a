# tarvo-archive is left out where zlib is missing.
if(TARGET tarvo-archive)
    # Sanitizers and Wine take time, and memory.
    if(NOT TARVO_SANITIZE AND NOT WIN32)
        set(archive_options --thorough)
    endif()
    tarvo_script_test(tarvo_archive examples/archive.py ${archive_options}
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:tarvo-archive>)
endif()
