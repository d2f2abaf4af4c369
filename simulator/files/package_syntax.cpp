// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/package_syntax.h"

#include <gio/gio.h>

namespace Simulator {

bool IsPackageId(const std::string& id)
{
    return g_application_id_is_valid(id.c_str()) != FALSE;
}

bool IsPackageVersion(const std::string& version)
{
    // Uses GLib's regular expressions: the standard library's recurse with the length of the text.
    constexpr const char* pattern = "\\A[0-9]{1,9}(\\.[0-9]{1,9}){0,7}(-[0-9A-Za-z.]{1,64})?\\z";
    return g_regex_match_simple(pattern, version.c_str(), GRegexCompileFlags{},
                                GRegexMatchFlags{}) != FALSE;
}

} // namespace Simulator
