// SPDX-License-Identifier: BSD-3-Clause
#include "models.h"

#include <algorithm>
#include <iterator>

using namespace Emporium;

PackageModel::PackageModel(const DaemonConnection& connection)
    : m_packages(connection.GetPackageList())
{
    const PackageCallback put = [this](const Package& package) { Put(package); };
    const PackageCallback remove = [this](const Package& package) { Remove(package); };
    m_subscriptions = {connection.SubscribeToEvent(EventType::PackageInstalled, put),
                       connection.SubscribeToEvent(EventType::PackageUpgraded, put),
                       connection.SubscribeToEvent(EventType::PackageRemoved, remove)};
}

int PackageModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_packages.size());
}

QVariant PackageModel::data(const QModelIndex& index, int role) const
{
    const Package& package = m_packages.at(static_cast<std::size_t>(index.row()));
    return QString::fromStdString(role == Version ? package.GetVersion() : package.GetID());
}

QHash<int, QByteArray> PackageModel::roleNames() const
{
    return {{Id, "packageId"}, {Version, "version"}};
}

int PackageModel::RowOf(const Package& package) const
{
    const auto found =
        std::find_if(m_packages.begin(), m_packages.end(),
                     [&package](const Package& other) { return other.GetID() == package.GetID(); });
    return static_cast<int>(std::distance(m_packages.begin(), found));
}

void PackageModel::Put(const Package& package)
{
    const int row = RowOf(package);
    if (row < rowCount()) {
        m_packages[static_cast<std::size_t>(row)] = package;
        emit dataChanged(index(row), index(row));
    } else {
        beginInsertRows({}, row, row);
        m_packages.push_back(package);
        endInsertRows();
    }
}

void PackageModel::Remove(const Package& package)
{
    const int row = RowOf(package);
    if (row < rowCount()) {
        beginRemoveRows({}, row, row);
        m_packages.erase(m_packages.begin() + row);
        endRemoveRows();
    }
}

OperationModel::OperationModel(const DaemonConnection& connection)
    : m_operations(connection.GetActiveOperations()),
      m_subscription(connection.SubscribeToEvent(
          EventType::OperationStatusChanged,
          OperationCallback([this](const Operation& operation) { Put(operation); })))
{
}

int OperationModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_operations.size());
}

QVariant OperationModel::data(const QModelIndex& index, int role) const
{
    const Operation& operation = m_operations.at(static_cast<std::size_t>(index.row()));
    const int status = static_cast<int>(operation.GetStatus());
    if (role == Progress) {
        return IsFinished(operation.GetStatus()) ? 1.0 : std::clamp(status / 100.0, 0.0, 1.0);
    }
    if (role == State) {
        const Common::ErrorCodeHelper error(static_cast<int>(operation.GetErrorCode()));
        return operation.GetStatus() == Common::OperationStatus::Failed
                   ? "failed: " + QString::fromStdString(error.errorCodeAsString())
                   : QString::number(status) + " %";
    }
    return QString::fromStdString(operation.GetPackageID());
}

QHash<int, QByteArray> OperationModel::roleNames() const
{
    return {{PackageId, "packageId"}, {Progress, "progress"}, {State, "state"}};
}

void OperationModel::Put(const Operation& operation)
{
    const auto found = std::find_if(
        m_operations.begin(), m_operations.end(),
        [&operation](const Operation& other) { return other.GetUUID() == operation.GetUUID(); });
    const int row = static_cast<int>(std::distance(m_operations.begin(), found));
    if (found != m_operations.end()) {
        *found = operation;
        emit dataChanged(index(row), index(row));
    } else {
        beginInsertRows({}, row, row);
        m_operations.push_back(operation);
        endInsertRows();
    }
}
