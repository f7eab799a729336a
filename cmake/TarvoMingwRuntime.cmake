# Windows looks for DLLs beside the program: the compiler's own ones are copied there.
foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(
        COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
        OUTPUT_VARIABLE path
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    # A compiler that does not know the file answers with the bare name.
    if(NOT IS_ABSOLUTE "${path}")
        find_file(TARVO_RUNTIME_${name} ${name} PATH_SUFFIXES lib bin REQUIRED)
        set(path ${TARVO_RUNTIME_${name}})
    endif()
    file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    file(COPY_FILE ${path} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name} ONLY_IF_DIFFERENT)
endforeach()
