# Run by cpack before it makes the packages: adds the documents that every one has to hold.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
    return()
endif()

# compress(source file): the same bytes give the same file.
function(compress source file)
    execute_process(COMMAND gzip -9nc ${source} OUTPUT_FILE ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component RUNTIME DEVELOPMENT)
    string(TOLOWER ${component} folder)
    set(folder ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${folder}/usr/share/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    file(MAKE_DIRECTORY ${folder})
    if(EXISTS ${CPACK_TARVO_SOURCES}/LICENSE)
        file(COPY_FILE ${CPACK_TARVO_SOURCES}/LICENSE ${folder}/copyright)
    else()
        file(WRITE ${folder}/copyright
            "Tarvo comes without a licence so far: all rights stay with its authors.\n")
    endif()
    compress(${CPACK_TARVO_DEBIAN_FOLDER}/changelog.Debian ${folder}/changelog.Debian.gz)
    if(EXISTS ${CPACK_TARVO_SOURCES}/CHANGELOG.md)
        compress(${CPACK_TARVO_SOURCES}/CHANGELOG.md ${folder}/changelog.gz)
    endif()
endforeach()
