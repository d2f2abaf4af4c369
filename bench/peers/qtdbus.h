// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "peers/peer.h"

#include <QDBusArgument>
#include <QMetaType>
#include <QObject>

const QDBusArgument& operator>>(const QDBusArgument& argument, Emporium::Package& package);
QDBusArgument& operator<<(QDBusArgument& argument, const Emporium::Package& package);
const QDBusArgument& operator>>(const QDBusArgument& argument, Emporium::Operation& operation);
QDBusArgument& operator<<(QDBusArgument& argument, const Emporium::Operation& operation);

Q_DECLARE_METATYPE(Emporium::Package)
Q_DECLARE_METATYPE(Emporium::Operation)

/// Receives the signals: Qt requires an object that moc has processed.
class Receiver : public QObject
{
    Q_OBJECT

public:
    Bench::Snapshot snapshot;
    Bench::Peer::PackageCallback callback;

public slots:
    void OnPackageUpgraded(const Emporium::Package& package);
    void OnOther(const Emporium::Package&) {}
    void OnPackageRemoved(const QString&) {}
    void OnOperation(const Emporium::Operation&) {}
};
