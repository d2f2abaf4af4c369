// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>
#include <common/operation_type.h>

#include <memory>
#include <string>

namespace Emporium {

class OperationRequestPrivate;

/// What DaemonConnection::CreateOperation() is to do. Made with OperationRequest::Builder, which
/// sees to it that nothing is missing.
///
/// Unlike a Package or an Operation a request can be changed, and copies share one state: a setter
/// that is called on one copy is seen by all. For use on one thread. A handle that was moved from
/// may only be assigned to or destroyed.
class EMPORIUM_EXPORT OperationRequest
{
public:
    class Builder;
    class BuilderPrivate;

    /// Type Install, both texts empty.
    OperationRequest();
    OperationRequest(const OperationRequest& other);
    OperationRequest(OperationRequest&& other) noexcept;
    OperationRequest& operator=(const OperationRequest& other);
    OperationRequest& operator=(OperationRequest&& other) noexcept;
    ~OperationRequest();

    Common::OperationType GetOperationType() const;
    const std::string& GetPackageID() const;
    const std::string& GetPackagePath() const;

    void SetOperationType(Common::OperationType type);

    /// The package to remove; of no use for an installation or upgrade.
    void SetPackageID(const std::string& id);

    /// The package file to install or upgrade from, as the daemon sees it: give a whole path. Of no
    /// use for a removal.
    void SetPackagePath(const std::string& path);

private:
    std::shared_ptr<OperationRequestPrivate> m_private;
};

/// Makes requests that are complete.
///
///     const auto request = Emporium::OperationRequest::Builder()
///                              .SetOperationType(Common::OperationType::Install)
///                              .SetPackagePath("/home/user/Downloads/app.pkg")
///                              .Build();
///
/// One builder can build several requests, each with a state of its own; copies of a builder share
/// one state.
class EMPORIUM_EXPORT OperationRequest::Builder
{
public:
    Builder();
    Builder(const Builder& other);
    Builder(Builder&& other) noexcept;
    Builder& operator=(const Builder& other);
    Builder& operator=(Builder&& other) noexcept;
    ~Builder();

    Builder& SetOperationType(Common::OperationType type);
    Builder& SetPackageID(const std::string& id);
    Builder& SetPackagePath(const std::string& path);

    /// The request, with the one text that its type needs; the other one is left out. Throws
    /// `std::logic_error` if the type, or what the type needs, was not set.
    OperationRequest Build() const;

private:
    std::shared_ptr<BuilderPrivate> m_private;
};

} // namespace Emporium
