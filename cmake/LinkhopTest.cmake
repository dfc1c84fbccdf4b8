# linkhop_add_test(<name> SOURCES <files...> LIBS <targets...> [SERIAL] [TIMEOUT <seconds>]
#                  [LABELS <labels...>])
# One QtTest program per unit, run headless. SERIAL marks tests that bind the server port 7200.
# Label "browser" marks tests that create a real Qt WebEngine view: the sanitizer run leaves them
# out, because Chromium inside Qt WebEngine trips AddressSanitizer in its own code.

set(linkhop_test_environment
    "QT_QPA_PLATFORM=offscreen"
    "QTWEBENGINE_DISABLE_SANDBOX=1"
    "QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu --disable-background-networking --disable-component-update")
if(LINKHOP_SANITIZE)
    list(APPEND linkhop_test_environment
        "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1:suppressions=${PROJECT_SOURCE_DIR}/cmake/asan.supp"
        "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/lsan.supp:print_suppressions=0"
        "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
endif()

# Headless environment, time limit, labels and serialisation of one registered test.
function(linkhop_test_properties name)
    cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "${linkhop_test_environment}"
        LABELS "${ARG_LABELS}")
    if(ARG_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    endif()
endfunction()

function(linkhop_add_test name)
    cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE linkhop_options Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    set(serial)
    if(ARG_SERIAL)
        set(serial SERIAL)
    endif()
    linkhop_test_properties(${name} ${serial} TIMEOUT "${ARG_TIMEOUT}" LABELS ${ARG_LABELS})
endfunction()
