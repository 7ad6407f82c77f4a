// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_FAILURE_H
#define TONWERK_APPS_SYSTEM_FAILURE_H

#include <stdexcept>

namespace tonwerk::app
{

/// An error to show to the user; the text is one whole sentence.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The user asked to stop (Ctrl-C, or the system's request to end).
class Interrupted : public std::runtime_error
{
public:
    Interrupted() : std::runtime_error("Interrupted: what was not done has left no files.") {}
};

/// An error in the command line; the text is one whole sentence.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_FAILURE_H
