# The one place for how this project's own code is compiled. Link to it PRIVATE; nothing of it
# reaches a host.
add_library(zvupdate_compile_options INTERFACE)
target_compile_options(zvupdate_compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>)
target_compile_definitions(zvupdate_compile_options INTERFACE
    QT_NO_KEYWORDS
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

# Qt names all that its own libraries are linked to, OpenGL among it. Only what is called is linked here.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(zvupdate_compile_options INTERFACE LINKER:--as-needed)
endif()

if(ZVUPDATE_SANITIZE)
    target_compile_options(zvupdate_compile_options INTERFACE
        -fsanitize=${ZVUPDATE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(zvupdate_compile_options INTERFACE -fsanitize=${ZVUPDATE_SANITIZE})
endif()

# A fuzzer is led by what its inputs have run through. That is counted in all that is built with fuzzers,
# as precompiled headers want the same flags everywhere.
if(ZVUPDATE_BUILD_FUZZERS)
    target_compile_options(zvupdate_compile_options INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(zvupdate_compile_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
