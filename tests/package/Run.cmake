# run(<command...>): runs a command, fails the script with its output when it
# fails, and leaves its output in last_output.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
    endif()
    set(last_output "${output}" PARENT_SCOPE)
endfunction()
