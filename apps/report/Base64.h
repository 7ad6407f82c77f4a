// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_BASE64_H
#define TONWERK_APPS_REPORT_BASE64_H

#include <string>
#include <string_view>

namespace tonwerk::app
{

/// Bytes as text in Base64 (RFC 4648).
std::string base64(std::string_view bytes);

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_BASE64_H
