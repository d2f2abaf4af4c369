// SPDX-License-Identifier: BSD-3-Clause
#include "testing/variant_text.h"

#include <emporium/testing/daemon_interface.h>
#include <emporium/testing/error.h>

#include <cstdint>

namespace Emporium::Testing {

const char* Utf8(const std::string& text)
{
    if (g_utf8_validate(text.c_str(), -1, nullptr) == FALSE ||
        text.find('\0') != std::string::npos) {
        throw Error("D-Bus carries only UTF-8 text, not '" + text + "'");
    }
    return text.c_str();
}

std::string TextOf(GVariant* value)
{
    const VariantPtr owned(g_variant_take_ref(value));
    const ::Simulator::TextPtr text(g_variant_print(owned.get(), TRUE));
    return text.get();
}

GVariant* ToVariant(const PackageRecord& package)
{
    return g_variant_new("(ssssa{sv})", Utf8(package.id), Utf8(package.version),
                         Utf8(package.developerCertificateSubgroup),
                         Utf8(package.developerCertificateID), nullptr);
}

GVariant* ToVariant(const OperationRecord& operation)
{
    return g_variant_new("(ssiii)", Utf8(operation.uuid), Utf8(operation.packageID),
                         static_cast<std::int32_t>(operation.type),
                         static_cast<std::int32_t>(operation.status),
                         static_cast<std::int32_t>(operation.error));
}

std::string Body(const PackageRecord& package)
{
    return TextOf(g_variant_new("(@(ssssa{sv}))", ToVariant(package)));
}

std::string Body(const OperationRecord& operation)
{
    return TextOf(g_variant_new("(@(ssiii))", ToVariant(operation)));
}

std::string Body(const std::string& text)
{
    return TextOf(g_variant_new("(s)", Utf8(text)));
}

} // namespace Emporium::Testing
