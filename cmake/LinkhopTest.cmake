# linkhop_add_test(<name> SOURCES <files...> LIBS <targets...> [SERIAL] [TIMEOUT <seconds>])
# One QtTest program per unit, run headless. SERIAL marks tests that bind the server port 7200.
function(linkhop_add_test name)
    cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE linkhop_options Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QTWEBENGINE_DISABLE_SANDBOX=1;QTWEBENGINE_CHROMIUM_FLAGS=--disable-gpu --disable-background-networking --disable-component-update"
        LABELS "${ARG_LABELS}")
    if(ARG_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    endif()
endfunction()
