// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_SUPPORT_MODELFILE_H
#define TONWERK_TESTS_SUPPORT_MODELFILE_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// The bytes of an analytic model, by its file name below the model folder.
inline std::vector<char> readModel(const std::string& name)
{
    const auto path = std::filesystem::path(TONWERK_TEST_MODEL_DIR) / name;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("there is no model " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

#endif // TONWERK_TESTS_SUPPORT_MODELFILE_H
