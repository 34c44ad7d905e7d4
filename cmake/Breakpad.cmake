# The crash dump library, as ai::breakpad: the system's where pkg-config knows it, else built from the
# sources that the npm package minidump carries (pinned in package.json and package-lock.json).
#
# AI_MINIDUMP_STACKWALK is the program that reads dumps back, for tests; it comes in the same package.
find_package(PkgConfig REQUIRED)
pkg_check_modules(breakpad_client_system QUIET IMPORTED_TARGET breakpad-client)

set(AI_MINIDUMP_PACKAGE ${PROJECT_SOURCE_DIR}/node_modules/minidump)
string(REPLACE "x86_64" "x64" AI_MINIDUMP_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
find_program(AI_MINIDUMP_STACKWALK minidump_stackwalk
             HINTS ${AI_MINIDUMP_PACKAGE}/bin/linux-${AI_MINIDUMP_ARCHITECTURE})

add_library(ai_breakpad INTERFACE)
add_library(ai::breakpad ALIAS ai_breakpad)
set_target_properties(ai_breakpad PROPERTIES AI_LAYER -1)

if(breakpad_client_system_FOUND)
    target_link_libraries(ai_breakpad INTERFACE PkgConfig::breakpad_client_system)
    return()
endif()

set(AI_BREAKPAD_SOURCES ${AI_MINIDUMP_PACKAGE}/deps/breakpad/src)
if(NOT EXISTS ${AI_BREAKPAD_SOURCES}/client/linux/handler/exception_handler.h)
    message(FATAL_ERROR "Neither pkg-config nor node_modules has Breakpad. Run\n"
                        "    npm ci --ignore-scripts\n"
                        "in ${PROJECT_SOURCE_DIR} and configure again.")
endif()

set(breakpad_client_files
    client/linux/crash_generation/crash_generation_client.cc
    client/linux/crash_generation/crash_generation_server.cc
    client/linux/dump_writer_common/thread_info.cc
    client/linux/dump_writer_common/ucontext_reader.cc
    client/linux/handler/exception_handler.cc
    client/linux/handler/minidump_descriptor.cc
    client/linux/log/log.cc
    client/linux/microdump_writer/microdump_writer.cc
    client/linux/minidump_writer/linux_core_dumper.cc
    client/linux/minidump_writer/linux_dumper.cc
    client/linux/minidump_writer/linux_ptrace_dumper.cc
    client/linux/minidump_writer/minidump_writer.cc
    client/linux/minidump_writer/pe_file.cc
    client/minidump_file_writer.cc
    common/convert_UTF.cc
    common/linux/elf_core_dump.cc
    common/linux/elfutils.cc
    common/linux/file_id.cc
    common/linux/guid_creator.cc
    common/linux/linux_libc_support.cc
    common/linux/memory_mapped_file.cc
    common/linux/safe_readlink.cc
    common/md5.cc
    common/string_conversion.cc)
list(TRANSFORM breakpad_client_files PREPEND ${AI_BREAKPAD_SOURCES}/)

add_library(breakpad_client STATIC ${breakpad_client_files})
target_include_directories(breakpad_client SYSTEM PUBLIC ${AI_BREAKPAD_SOURCES} ${AI_MINIDUMP_PACKAGE}/deps)
# HAVE_GETCONTEXT and HAVE_A_OUT_H are what its own configure script finds out about the C library.
include(CheckIncludeFile)
check_include_file(a.out.h AI_HAVE_A_OUT_H)
target_compile_definitions(breakpad_client PRIVATE HAVE_GETCONTEXT $<$<BOOL:${AI_HAVE_A_OUT_H}>:HAVE_A_OUT_H>)
# Not our code: no warnings. It runs on a broken process, in a cloned one: no sanitizer.
target_compile_options(breakpad_client PRIVATE -w -fno-sanitize=all)
target_link_libraries(breakpad_client PUBLIC Threads::Threads)
target_link_libraries(ai_breakpad INTERFACE breakpad_client)
