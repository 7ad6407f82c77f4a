# SPDX-License-Identifier: MIT
# The models that the program and the packages bring: tonwerk-small, which is committed, and tonwerk-standard and
# tonwerk-live, which are made of it and of a public network's weights. Whoever wants no weights of others switches
# TONWERK_PUBLIC_WEIGHTS off; without the fetched weights they are not made either.
option(TONWERK_PUBLIC_WEIGHTS "Make and ship the models with a public network's weights" ON)

# Trained, not built, so it may not be there yet.
file(GLOB smallModel CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/models/tonwerk-small.onnx")
set(shippedModels ${smallModel})
set(defaultModel ${smallModel})

set(weightsFolder "${depsFolder}/weights")
set(madeFolder "${PROJECT_SOURCE_DIR}/build/models")
set(madeModels "${madeFolder}/tonwerk-standard.onnx" "${madeFolder}/tonwerk-live.onnx")
file(GLOB weights CONFIGURE_DEPENDS "${weightsFolder}/model.index")
if(TONWERK_PUBLIC_WEIGHTS AND weights AND smallModel AND NOT CMAKE_HOST_WIN32)
    file(GLOB_RECURSE converterSources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/converters/*.py")
    set(makeModels "${PROJECT_SOURCE_DIR}/tools/make_default_models.sh")
    # Builds that run at the same time share the folder: the lock keeps them apart, and the second finds the work done.
    add_custom_command(
        OUTPUT ${madeModels}
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${madeFolder}"
        COMMAND flock "${madeFolder}/.lock" "${makeModels}" "${TONWERK_PYTHON}" "${weightsFolder}" "${smallModel}"
            "${madeFolder}"
        DEPENDS "${makeModels}" ${converterSources} "${smallModel}" "${weights}"
        COMMENT "Converting the public network and joining it with our own"
        VERBATIM)
    add_custom_target(made_models DEPENDS ${madeModels})
    list(APPEND shippedModels ${madeModels})
    set(defaultModel "${madeFolder}/tonwerk-standard.onnx")
endif()
