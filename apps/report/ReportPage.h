// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_REPORTPAGE_H
#define TONWERK_APPS_REPORT_REPORTPAGE_H

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace tonwerk::app
{

/// The report page with this data: one ASCII HTML text, which plays the
/// files that PlayerSegments wrote beside it. Texts in the data cannot end
/// the block that holds them; bytes that are not UTF-8 become U+FFFD.
/// \param data what report/page/facts.js reads
std::string reportPage(const nlohmann::json& data);

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_REPORTPAGE_H
