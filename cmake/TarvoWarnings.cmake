# tarvo_enable_warnings(target): the warnings of this project, as errors where TARVO_WERROR says so.
function(tarvo_enable_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Woverloaded-virtual
        $<$<BOOL:${TARVO_WERROR}>:-Werror>)
endfunction()
