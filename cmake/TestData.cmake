# SPDX-License-Identifier: MIT
# The analytic models that tests, benchmarks and the demo use: written by a script into one folder for all builds.
set(modelScript "${PROJECT_SOURCE_DIR}/tests/models/make_analytic_models.py")
set(modelContract "${PROJECT_SOURCE_DIR}/tools/stream_contract.py")
set(modelFolder "${PROJECT_SOURCE_DIR}/build/models")
# Builds that run at the same time share the folder: the lock keeps them apart, and the second finds the work done.
add_custom_command(
    OUTPUT "${modelFolder}/.stamp"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${modelFolder}"
    COMMAND flock "${modelFolder}/.lock" sh -c
        "test \"$3/.stamp\" -nt \"$2\" -a \"$3/.stamp\" -nt \"$4\" || { \"$1\" \"$2\" \"$3\" && touch \"$3/.stamp\"; }"
        sh "${TONWERK_PYTHON}" "${modelScript}" "${modelFolder}" "${modelContract}"
    DEPENDS "${modelScript}" "${modelContract}"
    COMMENT "Writing the analytic models"
    VERBATIM)
add_custom_target(analytic_models DEPENDS "${modelFolder}/.stamp")

# Paths as the tested programs see them: Wine shows the whole file system as drive Z.
if(WIN32 AND CMAKE_CROSSCOMPILING)
    set(drive "Z:")
endif()
set(TONWERK_TEST_MODEL_DIR "${drive}${modelFolder}")
set(TONWERK_TEST_BIN_DIR "${drive}${TONWERK_OUTPUT_DIR}")
