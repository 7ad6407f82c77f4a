// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_LOWERCASE_H
#define TONWERK_APPS_SYSTEM_LOWERCASE_H

#include <string>

namespace tonwerk::app
{

/// A UTF-8 text in lower case, to compare file names as systems do that ignore case.
std::string inLowerCase(const std::string& utf8);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_LOWERCASE_H
