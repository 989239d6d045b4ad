# Registers the C++ consumer (an out-of-tree program built against an installed tree) as a test
# of this build. Not in sanitizer builds: a program that is not instrumented cannot load an
# instrumented library.
if(NOT WIN32 AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    add_test(NAME consumer_cpp
        COMMAND ${CMAKE_CURRENT_LIST_DIR}/run-consumer --build ${PROJECT_BINARY_DIR})
    set_tests_properties(consumer_cpp PROPERTIES LABELS consumer TIMEOUT 300)
endif()
