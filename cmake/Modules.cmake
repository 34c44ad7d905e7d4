# Fails when a module links a target of ours that is not of a lower layer, under whichever of its names.
function(ai_check_layers name)
    get_target_property(own_layer ${name} AI_LAYER)
    get_target_property(dependencies ${name} LINK_LIBRARIES)
    foreach(dependency IN LISTS dependencies)
        if(TARGET ${dependency})
            get_target_property(is_imported ${dependency} IMPORTED)
            get_target_property(layer ${dependency} AI_LAYER)
            if(NOT is_imported AND (NOT layer MATCHES "^-?[0-9]+$" OR NOT layer LESS own_layer))
                message(FATAL_ERROR "${name} (layer ${own_layer}) must not link ${dependency} (layer ${layer})")
            endif()
        endif()
    endforeach()
endfunction()

# Adds the static library <name> as ai::<name>. Configuring fails when it links a module of its own
# layer or a higher one, so that the modules can only be put together the right way round.
#
#   ai_add_module(<name> LAYER <n> SOURCES <files> [PUBLIC <targets>] [PRIVATE <targets>] [PCH <headers>])
function(ai_add_module name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "LAYER" "SOURCES;PUBLIC;PRIVATE;PCH")
    add_library(${name} STATIC ${ARG_SOURCES})
    add_library(ai::${name} ALIAS ${name})
    set_target_properties(${name} PROPERTIES AUTOMOC ON AI_LAYER ${ARG_LAYER})
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE} ai_warnings)
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    if(ARG_PCH)
        target_precompile_headers(${name} PRIVATE ${ARG_PCH})
    endif()
    # At the end, when every target is known. The name is put in now; a deferred call would look for it then.
    cmake_language(EVAL CODE "cmake_language(DEFER DIRECTORY [[${CMAKE_SOURCE_DIR}]] CALL ai_check_layers ${name})")
endfunction()

# Adds one program of ours (a tool, a test helper, a benchmark) with our warnings and moc.
#
#   ai_add_program(<name> SOURCES <files> LINK <targets>)
function(ai_add_program name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK")
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE ${ARG_LINK} ai_warnings)
endfunction()

# Adds the shared library of one recogniser class, lib<name>.so, beside the others in <build>/lib, and its name
# to the global property AI_RECOGNISERS.
#
#   mirovane_add_recogniser(<name> SOURCES <files> [LINK <targets>])
function(mirovane_add_recogniser name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK")
    add_library(${name} SHARED ${ARG_SOURCES})
    set_property(GLOBAL APPEND PROPERTY AI_RECOGNISERS ${name})
    set_target_properties(${name} PROPERTIES AI_LAYER 1)
    target_link_libraries(${name} PUBLIC mirovane PRIVATE ${ARG_LINK} ai_warnings)
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${name} LIBRARY DESTINATION ${AI_INSTALL_HOME})
endfunction()

# The only limit of time that a test has, in seconds: many times what the longest one needs on an idle machine.
set(AI_TEST_LIMIT 1200 CACHE STRING "Seconds after which CTest ends a test")

# Adds one test program; each of its tests becomes a CTest test of its own. They run in a private TMPDIR
# and with an application object (tests/support). The programs stay out of the folder of the service, whose
# model folder is nobody's to change. Tests of programs with the same LOCK never run at the same time.
#
#   ai_add_test(<name> SOURCES <files> LINK <targets> [LOCK <name>])
function(ai_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "LOCK" "SOURCES;LINK")
    ai_add_program(${name} SOURCES ${ARG_SOURCES} LINK ${ARG_LINK} testsupport GTest::gmock)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/bin)
    set(properties TIMEOUT ${AI_TEST_LIMIT} ${AI_SANITIZER_TEST_PROPERTIES})
    if(ARG_LOCK)
        list(APPEND properties RESOURCE_LOCK ${ARG_LOCK})
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT ${AI_TEST_LIMIT}
                         PROPERTIES ${properties})
endfunction()
