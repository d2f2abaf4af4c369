// SPDX-License-Identifier: BSD-3-Clause
#include "model/result_impl.h"

#include <emporium/operation.h>
#include <emporium/package.h>

namespace Emporium {

ErrorResult::ErrorResult(std::string message)
    : m_private(std::make_shared<ErrorResultPrivate>(std::move(message)))
{
}

ErrorResult::ErrorResult(const ErrorResult&) = default;
ErrorResult::ErrorResult(ErrorResult&&) noexcept = default;
ErrorResult& ErrorResult::operator=(const ErrorResult&) = default;
ErrorResult& ErrorResult::operator=(ErrorResult&&) noexcept = default;
ErrorResult::~ErrorResult() = default;

const std::string& ErrorResult::Get() const
{
    return m_private->message;
}

Result<void>::Result(ErrorResult error)
    : m_private(std::make_shared<ResultPrivate<void>>(std::move(error)))
{
}

Result<void>::Result(SuccessResult<void> success)
    : m_private(std::make_shared<ResultPrivate<void>>(success))
{
}

bool Result<void>::HasError() const
{
    return std::holds_alternative<ErrorResult>(m_private->outcome);
}

Result<void>::operator bool() const
{
    return !HasError();
}

const std::string& Result<void>::GetError() const
{
    return std::get<1>(m_private->outcome).Get();
}

template class SuccessResult<Operation>;
template class SuccessResult<Package>;
template class SuccessResult<std::string>;
template class Result<Operation>;
template class Result<Package>;
template class Result<std::string>;

} // namespace Emporium
