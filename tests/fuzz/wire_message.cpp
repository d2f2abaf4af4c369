// SPDX-License-Identifier: BSD-3-Clause
//
// Signals and replies of any signature, body and byte order, received by the proxy through the bus
// library from a socket. GDBus reads the same bytes: what the proxy takes has the signature of the
// contract and the content that GDBus sees.
#include "dbus/contract.h"
#include "dbus/emporium_proxy.h"
#include "fuzz/describe.h"
#include "fuzz/input.h"
#include "fuzz/wire_writer.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/IConnection.h>
#include <sdbus-c++/ProxyInterfaces.h>

#include <gio/gio.h>

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <vector>

namespace {

using Fuzz::Describe;
namespace Contract = Emporium::Contract;

struct Unref
{
    void operator()(GDBusMessage* message) const { g_object_unref(message); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
template <typename T>
using Owned = std::unique_ptr<T, Unref>;

// --- the proxy ---

/// A client that is connected to a socket instead of a bus.
class Client final : public sdbus::ProxyInterfaces<org::velmora::Emporium_proxy>
{
public:
    explicit Client(sdbus::IConnection& connection)
        : ProxyInterfaces(connection, sdbus::ServiceName(""),
                          sdbus::ObjectPath(Contract::objectPath))
    {
        registerProxy();
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { unregisterProxy(); }

    /// The reply to the call, or nothing if it is refused.
    std::optional<std::string> Call(const char* method)
    {
        try {
            return method == std::string_view(Contract::Method::getAllProperties)
                       ? Describe(CallGetAllProperties())
                       : Describe(CallInstall("path"));
        } catch (const sdbus::Error&) {
            return std::nullopt;
        } catch (const std::runtime_error& error) {
            Fuzz::Require(std::string_view(error.what()).starts_with("Couldn't parse "),
                          "the only other failure is a missing property");
            return std::nullopt;
        }
    }

    std::vector<std::string> signals;

private:
    bool isFromDaemon(const sdbus::Message&) const override { return true; }
    void onReplyFromDaemon(const sdbus::Message&) override {}
    void onOperationStatusChanged(const Emporium::Operation& operation) override
    {
        signals.push_back(Describe(operation));
    }
    void onPackageInstalled(const Emporium::Package& package) override
    {
        signals.push_back(Describe(package));
    }
    void onPackageUpgraded(const Emporium::Package& package) override
    {
        signals.push_back(Describe(package));
    }
    void onPackageRemoved(const std::string& packageID) override { signals.push_back(packageID); }
};

// --- what GDBus reads ---

std::string DescribeOperation(GVariant* value)
{
    const char* uuid = nullptr;
    const char* packageID = nullptr;
    std::array<gint32, 3> numbers{};
    g_variant_get(value, "(&s&siii)", &uuid, &packageID, &numbers[0], &numbers[1], &numbers[2]);
    return std::string(uuid) + "|" + packageID + "|" + std::to_string(numbers[0]) + "|" +
           std::to_string(numbers[1]) + "|" + std::to_string(numbers[2]) + "\n";
}

std::string DescribePackage(GVariant* value)
{
    std::string text;
    for (gsize field = 0; field < 4; ++field) {
        const Owned<GVariant> child(g_variant_get_child_value(value, field));
        text += std::string(g_variant_get_string(child.get(), nullptr)) + (field < 3 ? "|" : "\n");
    }
    return text;
}

std::string DescribeList(GVariant* list, std::string (*describe)(GVariant*))
{
    std::string text = "[";
    for (gsize index = 0; index < g_variant_n_children(list); ++index) {
        const Owned<GVariant> child(g_variant_get_child_value(list, index));
        text += describe(child.get());
    }
    return text + "]";
}

/// The first value of a repeated key counts.
Owned<GVariant> Lookup(GVariant* dictionary, std::string_view wanted)
{
    GVariantIter entries;
    g_variant_iter_init(&entries, dictionary);
    const char* key = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&entries, "{&sv}", &key, &value) != FALSE) {
        Owned<GVariant> owned(value);
        if (key == wanted) {
            return owned;
        }
    }
    return {};
}

std::optional<std::string> DescribeProperties(GVariant* dictionary)
{
    std::vector<Owned<GVariant>> values;
    for (const Contract::PropertyShape& property : Contract::allProperties) {
        values.push_back(Lookup(dictionary, property.name));
        const bool fits =
            values.back() &&
            std::string_view(g_variant_get_type_string(values.back().get())) == property.signature;
        if (!fits) {
            return std::nullopt;
        }
    }
    return std::string(g_variant_get_string(values[0].get(), nullptr)) + "|" +
           g_variant_get_string(values[1].get(), nullptr) + "|" +
           DescribeList(values[2].get(), DescribePackage) +
           DescribeList(values[3].get(), DescribeOperation) +
           DescribeList(values[4].get(), DescribeOperation);
}

/// The only argument of the body as text; nothing if the body has another signature.
std::optional<std::string> DescribeBody(GVariant* body, std::string_view signature)
{
    const std::string_view type = body != nullptr ? g_variant_get_type_string(body) : "()";
    if (type == "()" && signature == Contract::operationRecord) {
        return Describe(Emporium::Operation());
    }
    if (type != "(" + std::string(signature) + ")") {
        return std::nullopt;
    }
    const Owned<GVariant> argument(g_variant_get_child_value(body, 0));
    if (signature == Contract::dictionary) {
        return DescribeProperties(argument.get());
    }
    if (signature == Contract::operationRecord) {
        return DescribeOperation(argument.get());
    }
    if (signature == Contract::packageRecord) {
        return DescribePackage(argument.get());
    }
    return std::string(g_variant_get_string(argument.get(), nullptr));
}

// --- the two ends of the socket ---

/// The server's part of the authentication, then the message, then the end.
void Send(int socket, std::string_view message)
{
    constexpr std::string_view greeting = "DATA\r\n"
                                          "OK 0123456789abcdef0123456789abcdef\r\n"
                                          "AGREE_UNIX_FD\r\n";
    for (const std::string_view part : {greeting, message}) {
        Fuzz::Require(::send(socket, part.data(), part.size(), MSG_NOSIGNAL) ==
                          static_cast<::ssize_t>(part.size()),
                      "the socket takes the message");
    }
    ::shutdown(socket, SHUT_WR);
}

void ProcessAll(sdbus::IConnection& connection)
{
    try {
        while (connection.processPendingEvent()) {
        }
    } catch (const sdbus::Error&) {
        return; // the message is malformed, or the end was reached
    }
}

struct Case
{
    const char* member;
    const char* signature;
    bool isSignal;
};

constexpr std::array<Case, 6> cases{{
    {Contract::Signal::operationStatusChanged, Contract::operationRecord, true},
    {Contract::Signal::packageInstalled, Contract::packageRecord, true},
    {Contract::Signal::packageUpgraded, Contract::packageRecord, true},
    {Contract::Signal::packageRemoved, Contract::string, true},
    {Contract::Method::getAllProperties, Contract::dictionary, false},
    {Contract::Method::install, Contract::operationRecord, false},
}};

/// What the proxy takes from the message, or nothing if it refuses it.
std::optional<std::string> Receive(const Case& received, std::string_view message)
{
    std::array<int, 2> ends{};
    Fuzz::Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0,
                  "there is a socket");
    const Common::FileDescriptor server(ends[1]);
    Send(server.Get(), message);
    const std::unique_ptr<sdbus::IConnection> connection =
        sdbus::createDirectBusConnection(ends[0]); // takes the descriptor
    Client client(*connection);
    if (!received.isSignal) {
        return client.Call(received.member);
    }
    ProcessAll(*connection);
    Fuzz::Require(client.signals.size() <= 1, "one message is at most one signal");
    return client.signals.empty() ? std::nullopt : std::optional(client.signals.front());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzz::Input input(data, size);
    const Case& received = cases[input.Below(cases.size())];
    const auto order =
        input.Below(2) == 0 ? Fuzz::WireWriter::Order::Little : Fuzz::WireWriter::Order::Big;
    const bool hasOtherSignature = input.Below(2) != 0;
    const std::string signature = hasOtherSignature ? input.Text() : received.signature;
    // The bus passes no body without a signature on.
    const std::string_view body = signature.empty() ? std::string_view() : input.Rest();
    const std::string message = received.isSignal
                                    ? Fuzz::SignalMessage(order, received.member, signature, body)
                                    : Fuzz::ReplyMessage(order, signature, body);

    const std::optional<std::string> taken = Receive(received, message);
    if (!taken) {
        return 0;
    }
    const Owned<GDBusMessage> same(g_dbus_message_new_from_blob(
        reinterpret_cast<guchar*>(const_cast<char*>(message.data())), message.size(),
        G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
    if (!same) {
        return 0; // The bus refuses it, too; the bus library does not check a value that is skipped.
    }
    const auto expected = DescribeBody(g_dbus_message_get_body(same.get()), received.signature);
    Fuzz::Require(expected.has_value(), "the proxy takes only what the contract describes");
    Fuzz::Require(*expected == *taken, "the proxy takes what is in the message");
    return 0;
}
