if(TARGET tarvo-info)
    tarvo_script_test(tarvo_info examples/info.py ${PROJECT_SOURCE_DIR}/tarvo/version.h
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:tarvo-info>)
endif()
