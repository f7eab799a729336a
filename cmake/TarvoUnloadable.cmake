# tarvo_keep_unloadable(target): for a module that shall be unloaded while the process runs, as plug-ins are. g++ marks
# the statics of templates and of inline functions as unique in the process, and Tarvo's headers have such templates;
# the loader never unloads a module that owns such a symbol.
function(tarvo_keep_unloadable target)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
        target_compile_options(${target} PRIVATE -fno-gnu-unique)
    endif()
endfunction()
