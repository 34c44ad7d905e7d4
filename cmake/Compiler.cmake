# What holds for all of our own code: warnings as errors, log lines with function and line in every build
# type, sanitizers, and ccache where it is installed.
find_program(AI_CCACHE ccache)
if(AI_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Precompiled headers are cached only with these two allowances.
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        ${AI_CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

# What a library declares deprecated stays a warning: it comes with an update of theirs, not a change of ours.
add_library(ai_warnings INTERFACE)
set_target_properties(ai_warnings PROPERTIES AI_LAYER -1) # below all modules
target_compile_options(ai_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                       -Woverloaded-virtual -Wcast-qual -Werror -Wno-error=deprecated-declarations)
target_compile_definitions(ai_warnings INTERFACE QT_MESSAGELOGCONTEXT QT_NO_CAST_TO_ASCII)

if(AI_SANITIZE)
    add_compile_options(-fsanitize=${AI_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${AI_SANITIZE})
endif()
if(AI_SANITIZE MATCHES "thread")
    include(${CMAKE_CURRENT_LIST_DIR}/../tests/tsan/ThreadSanitizer.cmake)
endif()

# Tests and the processes that they start leave out of the leaks what isn't ours.
if(AI_SANITIZE MATCHES "address")
    set(AI_SANITIZER_TEST_PROPERTIES
        ENVIRONMENT LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_LIST_DIR}/asan/suppressions.txt:print_suppressions=0)
endif()

# What programs with windows link besides: Mesa, Qt's platform plugin and the font library never free some of what
# they allocate.
add_library(ai_display INTERFACE)
if(AI_SANITIZE MATCHES "address")
    target_sources(ai_display INTERFACE ${CMAKE_CURRENT_LIST_DIR}/asan/suppressions.cpp)
endif()
