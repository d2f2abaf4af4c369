// SPDX-License-Identifier: BSD-3-Clause

// QtDBus: uses blocking calls of the connection, streams records from QDBusArgument into registered
// types, and connects slots to the signals.
#include "peers/qtdbus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>

#include <stdexcept>
#include <utility>

namespace {

const QString name = QStringLiteral("org.velmora.Emporium");
const QString path = QStringLiteral("/org/velmora/Emporium");

template <typename Record>
std::vector<Record> ToRecords(const QVariantMap& properties, const char* key)
{
    const auto argument = properties.value(QLatin1String(key)).value<QDBusArgument>();
    std::vector<Record> records;
    argument.beginArray();
    while (!argument.atEnd()) {
        Record record;
        argument >> record;
        records.push_back(std::move(record));
    }
    argument.endArray();
    return records;
}

std::string ToText(const QVariantMap& properties, const char* key)
{
    return properties.value(QLatin1String(key)).toString().toStdString();
}

class QtPeer final : public Bench::Peer
{
public:
    QtPeer() : m_application(m_count, m_arguments), m_connection(QString())
    {
        qDBusRegisterMetaType<Emporium::Package>();
        qDBusRegisterMetaType<Emporium::Operation>();
    }

    void Open() override
    {
        m_connection = QDBusConnection::sessionBus();
        Connect("PackageInstalled", SLOT(OnOther(Emporium::Package)));
        Connect("PackageRemoved", SLOT(OnPackageRemoved(QString)));
        Connect("OperationStatusChanged", SLOT(OnOperation(Emporium::Operation)));
        Connect("PackageUpgraded", SLOT(OnPackageUpgraded(Emporium::Package)));
        Load();
    }

    void Load() override
    {
        const QDBusMessage reply = Call(QStringLiteral("GetAllProperties"), {});
        const QVariantMap properties =
            qdbus_cast<QVariantMap>(reply.arguments().at(0).value<QDBusArgument>());
        Bench::Snapshot snapshot;
        snapshot.architecture = ToText(properties, "Architecture");
        snapshot.veyraVersion = ToText(properties, "VeyraVersion");
        snapshot.packages = ToRecords<Emporium::Package>(properties, "Packages");
        snapshot.operations = ToRecords<Emporium::Operation>(properties, "Operations");
        snapshot.completedOperations =
            ToRecords<Emporium::Operation>(properties, "CompletedOperations");
        m_receiver.snapshot = std::move(snapshot);
    }

    void Forget() override { m_receiver.snapshot = Bench::Snapshot(); }

    std::size_t PackageCount() override { return m_receiver.snapshot.packages.size(); }

    std::string GetVersion(const std::string& id) override
    {
        return m_receiver.snapshot.Find(id)->GetVersion();
    }

    void Start(const std::string& id) override
    {
        Call(QStringLiteral("Start"), {QString::fromStdString(id)});
    }

    void Settle() override { QCoreApplication::processEvents(); }

    void Subscribe(PackageCallback callback) override
    {
        m_receiver.snapshot.MakeIndex();
        m_receiver.callback = std::move(callback);
    }

    void Run(const bool& goOn) override
    {
        while (goOn) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

private:
    QDBusMessage Call(const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(name, path, name, method);
        call.setArguments(arguments);
        const QDBusMessage reply = m_connection.call(call);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            throw std::runtime_error(reply.errorMessage().toStdString());
        }
        return reply;
    }

    void Connect(const char* signal, const char* slot)
    {
        if (!m_connection.connect(name, path, name, QLatin1String(signal), &m_receiver, slot)) {
            throw std::runtime_error(std::string("cannot connect to ") + signal);
        }
    }

    // QCoreApplication keeps references to both.
    int m_count = 0;
    char** m_arguments = nullptr;
    QCoreApplication m_application;
    QDBusConnection m_connection;
    Receiver m_receiver;
};

/// Reads a structure with these fields.
template <typename... Fields>
const QDBusArgument& ReadStructure(const QDBusArgument& argument, Fields&... fields)
{
    argument.beginStructure();
    const QDBusArgument& rest = (argument >> ... >> fields);
    rest.endStructure();
    return rest;
}

} // namespace

const QDBusArgument& operator>>(const QDBusArgument& argument, Emporium::Package& package)
{
    QString id;
    QString version;
    QString subgroup;
    QString certificate;
    QVariantMap dictionary;
    const QDBusArgument& rest =
        ReadStructure(argument, id, version, subgroup, certificate, dictionary);
    package = Emporium::Package(id.toStdString(), version.toStdString(), subgroup.toStdString(),
                                certificate.toStdString(), {});
    return rest;
}

QDBusArgument& operator<<(QDBusArgument& argument, const Emporium::Package& package)
{
    argument.beginStructure();
    argument << QString::fromStdString(package.GetID())
             << QString::fromStdString(package.GetVersion())
             << QString::fromStdString(package.GetDeveloperCertificateSubgroup())
             << QString::fromStdString(package.GetDeveloperCertificateID()) << QVariantMap();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Emporium::Operation& operation)
{
    QString uuid;
    QString package;
    int type = 0;
    int status = 0;
    int error = 0;
    const QDBusArgument& rest = ReadStructure(argument, uuid, package, type, status, error);
    operation = Emporium::Operation(
        uuid.toStdString(), package.toStdString(), static_cast<Common::OperationType>(type),
        static_cast<Common::OperationStatus>(status), static_cast<Common::ErrorCode>(error));
    return rest;
}

QDBusArgument& operator<<(QDBusArgument& argument, const Emporium::Operation& operation)
{
    argument.beginStructure();
    argument << QString::fromStdString(operation.GetUUID())
             << QString::fromStdString(operation.GetPackageID())
             << static_cast<int>(operation.GetType()) << static_cast<int>(operation.GetStatus())
             << static_cast<int>(operation.GetErrorCode());
    argument.endStructure();
    return argument;
}

void Receiver::OnPackageUpgraded(const Emporium::Package& package)
{
    snapshot.Upgrade(package);
    callback(package);
}

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<QtPeer>();
}

} // namespace Bench
