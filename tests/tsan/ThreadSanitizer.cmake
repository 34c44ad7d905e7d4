# A build with ThreadSanitizer: the marks for the system's Qt, which is built without it, in every program, and
# what the tests need to report.
#
# The processes that a test starts write their reports where the test does, in <build>/tsan. The last test,
# tsan_reports, fails when anything lies there, so that a report counts whatever became of the process.
add_library(tsan_marks OBJECT ${CMAKE_CURRENT_LIST_DIR}/marks.cpp)
target_compile_options(tsan_marks PRIVATE -fno-sanitize=thread)
# The crash dump's callback logs within a signal's handler on purpose: the dump is on disk by then.
set(tsan_defaults suppressions=${CMAKE_CURRENT_LIST_DIR}/suppressions.txt:history_size=4:report_signal_unsafe=0)
target_compile_definitions(tsan_marks PRIVATE TSAN_DEFAULTS="${tsan_defaults}")
target_link_libraries(tsan_marks PRIVATE Qt5::Core ai_warnings)
link_libraries($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:tsan_marks>)

set(tsan_reports ${CMAKE_BINARY_DIR}/tsan)
set(AI_SANITIZER_TEST_PROPERTIES FIXTURES_REQUIRED tsan
                                 ENVIRONMENT TSAN_OPTIONS=log_path=${tsan_reports}/report:log_exe_name=1)

add_test(NAME tsan_clear COMMAND ${CMAKE_COMMAND} -E rm -rf ${tsan_reports})
add_test(NAME tsan_folder COMMAND ${CMAKE_COMMAND} -E make_directory ${tsan_reports})
add_test(NAME tsan_reports COMMAND ${CMAKE_COMMAND} -D REPORTS=${tsan_reports}
                                   -P ${CMAKE_CURRENT_LIST_DIR}/reports.cmake)
set_tests_properties(tsan_clear PROPERTIES FIXTURES_SETUP tsan)
set_tests_properties(tsan_folder PROPERTIES FIXTURES_SETUP tsan DEPENDS tsan_clear)
set_tests_properties(tsan_reports PROPERTIES FIXTURES_CLEANUP tsan)
