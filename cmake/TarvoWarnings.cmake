# tarvo_enable_warnings(target): the warnings of this project, as errors where TARVO_WERROR says so.
function(tarvo_enable_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Woverloaded-virtual
        $<$<BOOL:${TARVO_WERROR}>:-Werror>)
endfunction()

# tarvo_keep_unloadable(target): g++ marks the statics of templates and inline functions as unique in the process, and
# the loader never unloads a module that owns such a symbol.
function(tarvo_keep_unloadable target)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
        target_compile_options(${target} PRIVATE -fno-gnu-unique)
    endif()
endfunction()
