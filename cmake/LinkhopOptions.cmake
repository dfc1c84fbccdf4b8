# One place for the language standard, warnings and Qt's strict defines; every target links it.
add_library(linkhop_options INTERFACE)
target_compile_features(linkhop_options INTERFACE cxx_std_20)
target_compile_options(linkhop_options INTERFACE -Wall -Wextra -Wpedantic)
if(LINKHOP_WERROR)
    target_compile_options(linkhop_options INTERFACE -Werror)
endif()
target_compile_definitions(linkhop_options INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_USE_QSTRINGBUILDER
    QT_NO_CONTEXTLESS_CONNECT
    QT_NO_KEYWORDS
    QT_NO_FOREACH)
if(LINKHOP_SANITIZE)
    target_compile_options(linkhop_options INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
        -fno-sanitize-recover=undefined)
    target_link_options(linkhop_options INTERFACE -fsanitize=address,undefined)
endif()
if(LINKHOP_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "LINKHOP_FUZZ needs clang and libFuzzer: configure with -DCMAKE_CXX_COMPILER=clang++")
    endif()
    # Coverage for the libraries the fuzz targets drive, not only for the targets themselves.
    target_compile_options(linkhop_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(linkhop_options INTERFACE -fsanitize=address,undefined)
endif()
