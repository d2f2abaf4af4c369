// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// Definitions of the result templates; only the files that instantiate them include this.

#include <emporium/result.h>

#include <utility>
#include <variant>

namespace Emporium {

class ErrorResultPrivate
{
public:
    explicit ErrorResultPrivate(std::string text) : message(std::move(text)) {}

    std::string message;
};

template <typename T>
class SuccessResultPrivate
{
public:
    explicit SuccessResultPrivate(T content) : value(std::move(content)) {}

    T value;
};

template <typename T>
class ResultPrivate
{
public:
    template <typename Alternative>
    explicit ResultPrivate(Alternative alternative) : outcome(std::move(alternative))
    {
    }

    std::variant<SuccessResult<T>, ErrorResult> outcome;
};

template <typename T>
SuccessResult<T>::SuccessResult(T value)
    : m_private(std::make_shared<SuccessResultPrivate<T>>(std::move(value)))
{
}

template <typename T>
const T& SuccessResult<T>::Get() const
{
    return m_private->value;
}

template <typename T>
Result<T>::Result(ErrorResult error)
    : m_private(std::make_shared<ResultPrivate<T>>(std::move(error)))
{
}

template <typename T>
Result<T>::Result(SuccessResult<T> success)
    : m_private(std::make_shared<ResultPrivate<T>>(std::move(success)))
{
}

template <typename T>
bool Result<T>::HasError() const
{
    return std::holds_alternative<ErrorResult>(m_private->outcome);
}

template <typename T>
Result<T>::operator bool() const
{
    return !HasError();
}

template <typename T>
const T& Result<T>::Get() const
{
    return std::get<0>(m_private->outcome).Get();
}

template <typename T>
const T* Result<T>::operator->() const
{
    return &Get();
}

template <typename T>
const std::string& Result<T>::GetError() const
{
    return std::get<1>(m_private->outcome).Get();
}

} // namespace Emporium
