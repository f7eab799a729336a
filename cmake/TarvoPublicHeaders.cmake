cmake_minimum_required(VERSION 3.25)

# tarvo_public_headers(variable folder windows): the headers that a client can meet, as `tarvo/...` and in order: those
# that tarvo/tarvo.h includes, and what they include. What no header of these includes is the library's own business.
# `windows` says for which system.
#
# cmake -D FOLDER=<sources> -P TarvoPublicHeaders.cmake prints those for Linux, one a line.
function(tarvo_public_headers variable folder windows)
    set(pending tarvo/tarvo.h)
    set(found ${pending})
    while(pending)
        list(POP_FRONT pending header)
        file(STRINGS ${folder}/${header} lines REGEX "^[ \t]*#[ \t]*include[ \t]*<tarvo/")
        foreach(line IN LISTS lines)
            string(REGEX REPLACE ".*<(tarvo/[^>]+)>.*" "\\1" included "${line}")
            if(windows AND included MATCHES "^tarvo/platform/kernel/linux/")
                continue()
            endif()
            if(NOT included IN_LIST found)
                list(APPEND found ${included})
                list(APPEND pending ${included})
            endif()
        endforeach()
    endwhile()
    list(SORT found)
    set(${variable} ${found} PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    tarvo_public_headers(headers ${FOLDER} FALSE)
    list(JOIN headers "\n" headers)
    execute_process(COMMAND ${CMAKE_COMMAND} -E echo "${headers}")
endif()
