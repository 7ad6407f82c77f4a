// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_REPORTFILES_H
#define TONWERK_APPS_REPORT_REPORTFILES_H

#include <string_view>

namespace tonwerk::app
{

/// The files of apps/report/page, which cmake/EmbedText.cmake puts into the program.

/// The page's HTML with marks where style, data and scripts go.
std::string_view reportFrame();

/// The page's style sheet.
std::string_view reportStyle();

/// The script that mixes the sound, for the page and for its audio thread.
std::string_view reportEngine();

/// The page's other scripts, one after the other.
std::string_view reportScript();

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_REPORTFILES_H
