// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_SHA256_H
#define TONWERK_APPS_SYSTEM_SHA256_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace tonwerk::app
{

/// SHA-256, computed from consecutive parts.
class Sha256
{
public:
    Sha256();
    ~Sha256();

    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void feed(const void* bytes, std::size_t size);

    /// The hash of all bytes as 64 hexadecimal digits; call it once.
    std::string hexadecimal();

private:
    struct State;

    std::unique_ptr<State> state;
};

/// The SHA-256 of a file as 64 hexadecimal digits.
/// \throws Failure if it cannot be read
std::string sha256OfFile(const std::filesystem::path& path);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_SHA256_H
