# Everything in a build, the test framework included, gets the same sanitizers: they see only what they instrumented.
if(TARVO_SANITIZE)
    add_compile_options(-fsanitize=${TARVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TARVO_SANITIZE})
endif()
