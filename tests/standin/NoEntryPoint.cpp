// SPDX-License-Identifier: MIT
// A library with the runtime's file name and nothing of the runtime in it. Being loaded, it leaves a file in
// the current directory, so that a test can tell whether that happened.
#include <fstream>

extern "C" int tonwerkNothing()
{
    return 0;
}

namespace
{

const bool marked = std::ofstream("decoy-was-loaded").put('\n').good();

} // namespace
