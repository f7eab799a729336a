# Every program of the tour prints what its source says, and the document quotes the sources as they are.
set(tour ${PROJECT_SOURCE_DIR}/examples/tour)
if(TARVO_BUILD_EXAMPLES)
    get_property(targets DIRECTORY ${tour} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "EXECUTABLE")
            string(REPLACE "tour_" "" source ${target}.cpp)
            tarvo_script_test(${target} examples/tour.py run ${tour}/${source}
                ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}>)
        endif()
    endforeach()
endif()
tarvo_script_test(tour_quotes examples/tour.py quotes ${PROJECT_SOURCE_DIR}/docs/tour.md ${tour})
