// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <memory>
#include <string>

namespace Emporium {

class ErrorResultPrivate;
template <typename T>
class SuccessResultPrivate;
template <typename T>
class ResultPrivate;

/// A failure with an English message.
///
/// Like every class of this interface it is a handle: copies are cheap and share one object. A
/// handle that was moved from may only be assigned to or destroyed.
class EMPORIUM_EXPORT ErrorResult
{
public:
    /// A failure with this message.
    explicit ErrorResult(std::string message);

    /// @name Copying and moving
    /// @{

    /// Copies share one message.
    ErrorResult(const ErrorResult& other);
    ErrorResult(ErrorResult&& other) noexcept;
    ErrorResult& operator=(const ErrorResult& other);
    ErrorResult& operator=(ErrorResult&& other) noexcept;
    ~ErrorResult();
    /// @}

    /// The message. The reference is valid as long as any copy of this handle.
    const std::string& Get() const;

private:
    std::shared_ptr<ErrorResultPrivate> m_private;
};

/// A success with a value.
template <typename T>
class EMPORIUM_EXPORT SuccessResult
{
public:
    /// A success with this value.
    explicit SuccessResult(T value);

    /// The value. The reference is valid as long as any copy of this handle.
    const T& Get() const;

private:
    std::shared_ptr<SuccessResultPrivate<T>> m_private;
};

/// A success without a value.
template <>
class EMPORIUM_EXPORT SuccessResult<void>
{
};

/// The outcome of a query or a command: a value, or the message of a failure.
///
///     const auto package = connection.GetPackage("org.example.app");
///     if (package) {
///         std::cout << package->GetVersion() << '\n';
///     } else {
///         std::cerr << package.GetError() << '\n';
///     }
///
/// The library provides it for `void`, Package, Operation and `std::string`. Immutable, so any number
/// of threads may read and copy the same result. Get() on a failure and GetError() on a success throw
/// `std::bad_variant_access`.
template <typename T>
class EMPORIUM_EXPORT Result
{
public:
    /// A failure.
    Result(ErrorResult error);

    /// A success.
    Result(SuccessResult<T> success);

    /// True on failure.
    bool HasError() const;

    /// True on success.
    explicit operator bool() const;

    /// The value. The reference is valid as long as any copy of this handle.
    const T& Get() const;

    /// The value, as Get() returns it.
    const T* operator->() const;

    /// The message. The reference is valid as long as any copy of this handle.
    const std::string& GetError() const;

private:
    std::shared_ptr<ResultPrivate<T>> m_private;
};

/// The outcome of a command that returns no value.
template <>
class EMPORIUM_EXPORT Result<void>
{
public:
    /// A failure.
    Result(ErrorResult error);

    /// A success.
    Result(SuccessResult<void> success);

    /// True on failure.
    bool HasError() const;

    /// True on success.
    explicit operator bool() const;

    /// The message. The reference is valid as long as any copy of this handle.
    const std::string& GetError() const;

private:
    std::shared_ptr<ResultPrivate<void>> m_private;
};

class Operation;
class Package;

extern template class SuccessResult<Operation>;
extern template class SuccessResult<Package>;
extern template class SuccessResult<std::string>;
extern template class Result<Operation>;
extern template class Result<Package>;
extern template class Result<std::string>;

} // namespace Emporium
