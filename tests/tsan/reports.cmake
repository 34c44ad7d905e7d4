# Shows the reports of ThreadSanitizer that lie in the folder REPORTS, and fails if there are any. What it writes
# of a service that a test crashed on purpose isn't one.
file(GLOB files ${REPORTS}/report*)
set(count 0)
foreach(report IN LISTS files)
    file(READ ${report} text)
    if(text MATCHES "WARNING: ThreadSanitizer")
        message("${text}")
        math(EXPR count "${count} + 1")
    endif()
endforeach()
if(count GREATER 0)
    message(FATAL_ERROR "${count} processes with reports of ThreadSanitizer, in ${REPORTS}")
endif()
