// SPDX-License-Identifier: BSD-3-Clause

// Raw sd-bus, as written in C: enters containers one by one, borrows strings from the message, and skips
// what it does not need.
#include "peers/peer.h"

#include <systemd/sd-bus.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

constexpr const char* name = "org.velmora.Emporium";
constexpr const char* path = "/org/velmora/Emporium";

int Check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    }
    return result;
}

int ReadPackage(sd_bus_message* message, std::vector<Emporium::Package>& packages)
{
    const char* id = nullptr;
    const char* version = nullptr;
    const char* subgroup = nullptr;
    const char* certificate = nullptr;
    int r = sd_bus_message_enter_container(message, 'r', "ssssa{sv}");
    if (r <= 0) {
        return r;
    }
    if ((r = sd_bus_message_read_basic(message, 's', &id)) < 0 ||
        (r = sd_bus_message_read_basic(message, 's', &version)) < 0 ||
        (r = sd_bus_message_read_basic(message, 's', &subgroup)) < 0 ||
        (r = sd_bus_message_read_basic(message, 's', &certificate)) < 0 ||
        (r = sd_bus_message_skip(message, "a{sv}")) < 0 ||
        (r = sd_bus_message_exit_container(message)) < 0) {
        return r;
    }
    packages.emplace_back(id, version, subgroup, certificate, std::map<std::string, std::string>());
    return 1;
}

int ReadOperation(sd_bus_message* message, std::vector<Emporium::Operation>& operations)
{
    const char* uuid = nullptr;
    const char* package = nullptr;
    int32_t type = 0;
    int32_t status = 0;
    int32_t error = 0;
    int r = sd_bus_message_enter_container(message, 'r', "ssiii");
    if (r <= 0) {
        return r;
    }
    if ((r = sd_bus_message_read_basic(message, 's', &uuid)) < 0 ||
        (r = sd_bus_message_read_basic(message, 's', &package)) < 0 ||
        (r = sd_bus_message_read_basic(message, 'i', &type)) < 0 ||
        (r = sd_bus_message_read_basic(message, 'i', &status)) < 0 ||
        (r = sd_bus_message_read_basic(message, 'i', &error)) < 0 ||
        (r = sd_bus_message_exit_container(message)) < 0) {
        return r;
    }
    operations.emplace_back(uuid, package, static_cast<Common::OperationType>(type),
                            static_cast<Common::OperationStatus>(status),
                            static_cast<Common::ErrorCode>(error));
    return 1;
}

template <typename Record>
int ReadRecords(sd_bus_message* message, const char* array, const char* record,
                int (*read)(sd_bus_message*, std::vector<Record>&), std::vector<Record>& records)
{
    int r = sd_bus_message_enter_container(message, 'v', array);
    if (r < 0 || (r = sd_bus_message_enter_container(message, 'a', record)) < 0) {
        return r;
    }
    while ((r = read(message, records)) > 0) {
    }
    if (r < 0 || (r = sd_bus_message_exit_container(message)) < 0) {
        return r;
    }
    return sd_bus_message_exit_container(message);
}

int ReadText(sd_bus_message* message, std::string& text)
{
    const char* value = nullptr;
    const int r = sd_bus_message_read(message, "v", "s", &value);
    if (r >= 0) {
        text = value;
    }
    return r;
}

int ReadProperty(sd_bus_message* message, const char* key, Bench::Snapshot& snapshot)
{
    if (std::strcmp(key, "Architecture") == 0) {
        return ReadText(message, snapshot.architecture);
    }
    if (std::strcmp(key, "VeyraVersion") == 0) {
        return ReadText(message, snapshot.veyraVersion);
    }
    if (std::strcmp(key, "Packages") == 0) {
        return ReadRecords(message, "a(ssssa{sv})", "(ssssa{sv})", ReadPackage, snapshot.packages);
    }
    if (std::strcmp(key, "Operations") == 0) {
        return ReadRecords(message, "a(ssiii)", "(ssiii)", ReadOperation, snapshot.operations);
    }
    if (std::strcmp(key, "CompletedOperations") == 0) {
        return ReadRecords(message, "a(ssiii)", "(ssiii)", ReadOperation,
                           snapshot.completedOperations);
    }
    return sd_bus_message_skip(message, "v");
}

} // namespace

// callgrind counts the instructions of this function, and finds it by this name.
extern "C" [[gnu::noinline]] int DecodeProperties(sd_bus_message* message,
                                                  Bench::Snapshot& snapshot)
{
    int r = sd_bus_message_enter_container(message, 'a', "{sv}");
    if (r < 0) {
        return r;
    }
    while ((r = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        const char* key = nullptr;
        if ((r = sd_bus_message_read_basic(message, 's', &key)) < 0 ||
            (r = ReadProperty(message, key, snapshot)) < 0 ||
            (r = sd_bus_message_exit_container(message)) < 0) {
            return r;
        }
    }
    return r < 0 ? r : sd_bus_message_exit_container(message);
}

namespace {

class SdBusPeer final : public Bench::Peer
{
public:
    void Open() override
    {
        Check(sd_bus_open_user(&m_bus), "sd_bus_open_user");
        Match("PackageInstalled", OnOther);
        Match("PackageRemoved", OnOther);
        Match("OperationStatusChanged", OnOther);
        Match("PackageUpgraded", OnPackageUpgraded);
        Load();
    }

    void Load() override
    {
        sd_bus_error error{};
        sd_bus_message* reply = nullptr;
        Check(sd_bus_call_method(m_bus, name, path, name, "GetAllProperties", &error, &reply,
                                 nullptr),
              "GetAllProperties");
        Bench::Snapshot snapshot;
        Check(DecodeProperties(reply, snapshot), "the reply");
        m_snapshot = std::move(snapshot);
        sd_bus_message_unref(reply);
    }

    void Forget() override { m_snapshot = Bench::Snapshot(); }

    std::size_t PackageCount() override { return m_snapshot.packages.size(); }

    std::string GetVersion(const std::string& id) override
    {
        return m_snapshot.Find(id)->GetVersion();
    }

    void Start(const std::string& id) override
    {
        sd_bus_error error{};
        Check(
            sd_bus_call_method(m_bus, name, path, name, "Start", &error, nullptr, "s", id.c_str()),
            "Start");
    }

    void Settle() override
    {
        while (Check(sd_bus_process(m_bus, nullptr), "sd_bus_process") > 0) {
        }
    }

    void Subscribe(PackageCallback callback) override
    {
        m_snapshot.MakeIndex();
        m_callback = std::move(callback);
    }

    void Run(const bool& goOn) override
    {
        while (goOn) {
            if (Check(sd_bus_process(m_bus, nullptr), "sd_bus_process") == 0) {
                Check(sd_bus_wait(m_bus, UINT64_MAX), "sd_bus_wait");
            }
        }
    }

private:
    void Match(const char* signal, sd_bus_message_handler_t handler)
    {
        Check(sd_bus_match_signal(m_bus, nullptr, name, path, name, signal, handler, this),
              "sd_bus_match_signal");
    }

    static int OnOther(sd_bus_message*, void*, sd_bus_error*) { return 0; }

    static int OnPackageUpgraded(sd_bus_message* message, void* self, sd_bus_error*)
    {
        return static_cast<SdBusPeer*>(self)->Upgrade(message);
    }

    int Upgrade(sd_bus_message* message)
    {
        m_received.clear();
        const int r = ReadPackage(message, m_received);
        if (r < 0) {
            return r;
        }
        m_snapshot.Upgrade(m_received.front());
        m_callback(m_received.front());
        return 0;
    }

    // The end of the process closes it.
    sd_bus* m_bus = nullptr;
    Bench::Snapshot m_snapshot;
    std::vector<Emporium::Package> m_received;
    PackageCallback m_callback;
};

} // namespace

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<SdBusPeer>();
}

} // namespace Bench
