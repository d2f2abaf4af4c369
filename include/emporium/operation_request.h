// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>
#include <common/operation_type.h>

#include <memory>
#include <string>

namespace Emporium {

class OperationRequestPrivate;

/// The argument of DaemonConnection::CreateOperation(). Create it with OperationRequest::Builder,
/// which checks that it is complete.
///
/// Unlike a Package or an Operation, a request is mutable, and copies share their state: a setter
/// called on one copy changes all of them. For use on one thread. A handle that was moved from may
/// only be assigned to or destroyed.
class EMPORIUM_EXPORT OperationRequest
{
public:
    class Builder;
    class BuilderPrivate;

    /// A request of type Install with empty texts.
    OperationRequest();

    /// @name Copying and moving
    /// @{

    /// Copies share their state.
    OperationRequest(const OperationRequest& other);
    OperationRequest(OperationRequest&& other) noexcept;
    OperationRequest& operator=(const OperationRequest& other);
    OperationRequest& operator=(OperationRequest&& other) noexcept;
    ~OperationRequest();
    /// @}

    /// What is requested.
    Common::OperationType GetOperationType() const;

    /// The package to remove. The reference is valid until the request changes or ends.
    const std::string& GetPackageID() const;

    /// The package file. The reference is valid until the request changes or ends.
    const std::string& GetPackagePath() const;

    /// Sets what is requested.
    void SetOperationType(Common::OperationType type);

    /// The package to remove. Ignored by an installation or upgrade.
    void SetPackageID(const std::string& id);

    /// The package file to install or upgrade from. The daemon opens it, so the path has to be
    /// absolute. Ignored by a removal.
    void SetPackagePath(const std::string& path);

private:
    std::shared_ptr<OperationRequestPrivate> m_private;
};

/// Builds complete requests.
///
///     const auto request = Emporium::OperationRequest::Builder()
///                              .SetOperationType(Common::OperationType::Install)
///                              .SetPackagePath("/home/user/Downloads/app.pkg")
///                              .Build();
///
/// One builder can build several requests, each with a state of its own. Copies of a builder share
/// their state.
class EMPORIUM_EXPORT OperationRequest::Builder
{
public:
    /// A builder without type and texts.
    Builder();

    /// @name Copying and moving
    /// @{

    /// Copies share their state.
    Builder(const Builder& other);
    Builder(Builder&& other) noexcept;
    Builder& operator=(const Builder& other);
    Builder& operator=(Builder&& other) noexcept;
    ~Builder();
    /// @}

    /// Sets what is requested. Required.
    Builder& SetOperationType(Common::OperationType type);

    /// Sets the package to remove. Required for a removal.
    Builder& SetPackageID(const std::string& id);

    /// Sets the absolute path of the package file. Required for an installation or upgrade.
    Builder& SetPackagePath(const std::string& path);

    /// Returns a request with the one text that its type needs; the other text is left out. Throws
    /// `std::logic_error` if the type, or the text that it needs, was not set.
    OperationRequest Build() const;

private:
    std::shared_ptr<BuilderPrivate> m_private;
};

} // namespace Emporium
