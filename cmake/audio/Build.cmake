# SPDX-License-Identifier: MIT
# Configures and builds the audio libraries in FOLDER, unless all OUTPUTS are newer than all INPUTS. Builds that run at
# the same time and share the folder wait for each other here, and the second finds the work done.
file(LOCK "${FOLDER}" DIRECTORY)
set(done TRUE)
foreach(output IN LISTS OUTPUTS)
    foreach(input IN LISTS INPUTS)
        if(NOT EXISTS "${output}" OR "${input}" IS_NEWER_THAN "${output}")
            set(done FALSE)
        endif()
    endforeach()
endforeach()
if(done)
    return()
endif()

cmake_path(GET CMAKE_CURRENT_LIST_FILE PARENT_PATH project)
set(log "${FOLDER}/build.log")
foreach(step "-G;${GENERATOR};-S;${project};-B;${FOLDER};${ARGUMENTS}" "--build;${FOLDER};--target;audio_libraries")
    execute_process(COMMAND "${CMAKE_COMMAND}" ${step} RESULT_VARIABLE failure OUTPUT_FILE "${log}" ERROR_FILE "${log}")
    if(failure)
        file(READ "${log}" words)
        message(FATAL_ERROR "${words}\nThe audio libraries cannot be built (the output stands above and in ${log}).")
    endif()
endforeach()
file(TOUCH ${OUTPUTS}) # what was up to date is newer than the inputs too
