// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_REPORTPAGE_H
#define TONWERK_APPS_REPORT_REPORTPAGE_H

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace tonwerk::app
{

/// The report page with this data in it: one HTML text in ASCII that needs no other file to show itself. What
/// the data's texts hold cannot end the block that they stand in; bytes that are not UTF-8 become U+FFFD.
/// \param data what report/page/page.js reads
std::string reportPage(const nlohmann::json& data);

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_REPORTPAGE_H
