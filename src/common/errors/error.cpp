// SPDX-License-Identifier: BSD-3-Clause
#include <common/error.h>

#include "common/errors/error_table.h"

#include <utility>

namespace Common {
namespace {

class ErrorCodeCategoryImpl final : public std::error_category
{
public:
    ~ErrorCodeCategoryImpl() override = default;

    const char* name() const noexcept override { return "Common::ErrorCategory"; }

    std::string message(int value) const override { return std::string(FindError(value).message); }
};

} // namespace

const std::error_category& ErrorCodeCategroty()
{
    static const ErrorCodeCategoryImpl category;
    return category;
}

std::error_code make_error_code(ErrorCode code)
{
    return {static_cast<int>(code), ErrorCodeCategroty()};
}

ErrorCodeHelper::ErrorCodeHelper(int code) : m_code(static_cast<ErrorCode>(code))
{
    const ErrorTableRow& row = FindError(code);
    m_dbusErrorName = row.dbusName;
    m_shortName = row.ShortName();
}

// Keeps the given name, and leaves the bus name empty: callers rely on that to see how a helper was
// constructed.
ErrorCodeHelper::ErrorCodeHelper(const std::string& name)
    : m_code(FindError(name).code), m_shortName(name)
{
}

ErrorCodeHelper::ErrorCodeHelper(const ErrorCodeHelper&) = default;
ErrorCodeHelper::ErrorCodeHelper(ErrorCodeHelper&&) noexcept = default;
ErrorCodeHelper& ErrorCodeHelper::operator=(const ErrorCodeHelper&) = default;
ErrorCodeHelper& ErrorCodeHelper::operator=(ErrorCodeHelper&&) noexcept = default;
ErrorCodeHelper::~ErrorCodeHelper() = default;

ErrorCode ErrorCodeHelper::errorCode() const
{
    return m_code;
}

const std::string& ErrorCodeHelper::errorCodeAsDBusErrorString() const
{
    return m_dbusErrorName;
}

const std::string& ErrorCodeHelper::errorCodeAsString() const
{
    return m_shortName;
}

Error::Error(std::error_code code, std::string message)
    : std::system_error(code), m_message(std::move(message))
{
}

Error::Error(const Error&) = default;
Error& Error::operator=(const Error&) = default;
Error::~Error() = default;

const char* Error::what() const noexcept
{
    return m_message.c_str();
}

} // namespace Common
