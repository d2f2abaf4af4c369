// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <QAbstractListModel>

#include <vector>

/// The installed packages, for a ListView. Owned by the window's thread, like the library's events.
class PackageModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role
    {
        Id = Qt::UserRole,
        Version,
    };

    explicit PackageModel(const Emporium::DaemonConnection& connection);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    void Put(const Emporium::Package& package);
    void Remove(const Emporium::Package& package);
    int RowOf(const Emporium::Package& package) const;

    std::vector<Emporium::Package> m_packages;
    std::vector<Emporium::EventSubscription> m_subscriptions;
};

/// The operations that are running, and those that have ended since the window was opened.
class OperationModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role
    {
        PackageId = Qt::UserRole,
        Progress,
        State,
    };

    explicit OperationModel(const Emporium::DaemonConnection& connection);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    void Put(const Emporium::Operation& operation);

    std::vector<Emporium::Operation> m_operations;
    Emporium::EventSubscription m_subscription;
};
