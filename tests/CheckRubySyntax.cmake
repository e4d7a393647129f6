# Fails when a Ruby file of the companion tap does not parse (ruby -wc), warnings included; skipped, saying so, on a
# machine without ruby. Run as: cmake -DSOURCE_DIR=<companion> -P CheckRubySyntax.cmake
find_program(RUBY ruby)
if(NOT RUBY)
    message("Skipped: ruby is not installed, so the companion tap's Ruby was not checked (./dev deps installs it)")
    return()
endif()
file(GLOB_RECURSE scripts "${SOURCE_DIR}/*.rb")
if(NOT scripts)
    message(FATAL_ERROR "No Ruby files under ${SOURCE_DIR}")
endif()
foreach(script ${scripts})
    execute_process(COMMAND "${RUBY}" -wc "${script}" RESULT_VARIABLE status OUTPUT_VARIABLE output
                    ERROR_VARIABLE errors)
    if(NOT status EQUAL 0 OR NOT output MATCHES "Syntax OK" OR NOT errors STREQUAL "")
        message(FATAL_ERROR "${script}:\n${output}${errors}")
    endif()
    message(STATUS "${script}: ${output}")
endforeach()
