// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_HANDOFF_ZIPFILE_H
#define TONWERK_APPS_HANDOFF_ZIPFILE_H

#include <string>
#include <vector>

namespace tonwerk::app
{

/// A file to go into a zip archive.
struct ZipEntry
{
    /// ASCII, with slashes between folders.
    std::string name;
    std::string content;
};

/// A zip archive of a few small files, stored and not compressed: the projects that go into it are a few
/// kilobytes of text, which is not worth a library. Less than 4 GB in all. All dates are the format's first,
/// so that equal files give equal archives.
std::string zipFile(const std::vector<ZipEntry>& entries);

} // namespace tonwerk::app

#endif // TONWERK_APPS_HANDOFF_ZIPFILE_H
