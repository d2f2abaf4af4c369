// SPDX-License-Identifier: BSD-3-Clause

// The daemon of the benchmarks. It marshals its replies and signals beforehand, so that its own time is
// as short and as constant as possible. GIO opens the connection and marshals; this program writes the
// message stream itself, because GDBus marshals a message each time it is sent.
//
// Commands on standard input, one per line; each is answered with "ok" on standard output:
//   packages COUNT ENTRIES [COMPLETED]
//                 sets the reply of GetAllProperties: COUNT packages with ENTRIES dictionary
//                 entries each, and COMPLETED completed operations (default 0)
//   flood COUNT   sends COUNT PackageUpgraded signals, one package after the other; "flood 0"
//                 only marshals them: use it before a task is timed
//   quit

#include <gio/gio.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Unref
{
    void operator()(gpointer object) const { g_object_unref(object); }
};

template <typename Object>
using GObjectPointer = std::unique_ptr<Object, Unref>;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what);
}

void Check(GError* error)
{
    if (error != nullptr) {
        const std::string message = error->message;
        g_error_free(error);
        Fail(message);
    }
}

std::string PackageID(std::size_t number)
{
    return "org.example.package-" + std::to_string(number);
}

/// The types alternate: records of four entries hold basic values only, records of sixteen hold
/// arrays too.
GVariant* EntryValue(std::size_t entry)
{
    switch (entry % 8) {
    case 2:
        return g_variant_new_uint32(static_cast<guint32>(entry * 1000));
    case 3:
        return g_variant_new_boolean(TRUE);
    case 5:
        return g_variant_new_int64(static_cast<gint64>(entry) * 1'000'000'007);
    case 6: {
        const std::array<const char*, 2> texts{"org.example.first", "org.example.second"};
        return g_variant_new_strv(texts.data(), texts.size());
    }
    case 7: {
        const std::array<gint32, 8> numbers{1, 2, 3, 4, 5, 6, 7, 8};
        return g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, numbers.data(), numbers.size(),
                                         sizeof(gint32));
    }
    default:
        return g_variant_new_string("a value of some length");
    }
}

GVariant* PackageRecord(std::size_t number, std::size_t entries)
{
    GVariantBuilder dictionary;
    g_variant_builder_init(&dictionary, G_VARIANT_TYPE_VARDICT);
    for (std::size_t entry = 0; entry < entries; ++entry) {
        g_variant_builder_add(&dictionary, "{sv}", ("attribute-" + std::to_string(entry)).c_str(),
                              EntryValue(entry));
    }
    return g_variant_new("(ssssa{sv})", PackageID(number).c_str(), "1.20.3", "subgroup-17",
                         "0f1e2d3c4b5a69788796a5b4c3d2e1f0", &dictionary);
}

constexpr gint32 running = 10;
constexpr gint32 succeeded = 100;

/// Each has its own UUID: the last six digits count up from `firstNumber`.
GVariant* OperationRecords(std::size_t count, std::size_t firstNumber, gint32 status)
{
    GVariantBuilder records;
    g_variant_builder_init(&records, G_VARIANT_TYPE("a(ssiii)"));
    for (std::size_t number = 0; number < count; ++number) {
        const std::string uuid =
            "7d444840-9dc0-11d1-b245-5ffdce" + std::to_string(firstNumber + number);
        g_variant_builder_add(&records, "(ssiii)", uuid.c_str(), PackageID(number).c_str(), 0,
                              status, 0);
    }
    return g_variant_builder_end(&records);
}

GVariant* AllProperties(std::size_t packages, std::size_t entries, std::size_t completed)
{
    GVariantBuilder records;
    g_variant_builder_init(&records, G_VARIANT_TYPE("a(ssssa{sv})"));
    for (std::size_t number = 0; number < packages; ++number) {
        g_variant_builder_add_value(&records, PackageRecord(number, entries));
    }
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&properties, "{sv}", "Architecture", g_variant_new_string("x86_64"));
    g_variant_builder_add(&properties, "{sv}", "VeyraVersion", g_variant_new_string("5.1.0.24"));
    g_variant_builder_add(&properties, "{sv}", "Packages", g_variant_builder_end(&records));
    g_variant_builder_add(&properties, "{sv}", "Operations", OperationRecords(3, 100'000, running));
    g_variant_builder_add(&properties, "{sv}", "CompletedOperations",
                          OperationRecords(completed, 200'000, succeeded));
    return g_variant_new("(a{sv})", &properties);
}

// The offsets of the serial number and of the body's length in the fixed part of a message.
constexpr std::size_t bodyLengthOffset = 4;
constexpr std::size_t serialOffset = 8;

void PutNumber(Bytes& bytes, std::size_t offset, std::uint32_t number)
{
    std::memcpy(bytes.data() + offset, &number, sizeof(number));
}

std::uint32_t GetNumber(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + offset, sizeof(number));
    return number;
}

Bytes Marshal(GDBusMessage* message)
{
    // GDBus refuses serial 0; Bus::Send() sets the real one.
    g_dbus_message_set_serial(message, 1);
    g_dbus_message_set_byte_order(message, G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN);
    gsize size = 0;
    GError* error = nullptr;
    guchar* const blob =
        g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, &error);
    Check(error);
    Bytes bytes(blob, blob + size);
    g_free(blob);
    return bytes;
}

/// The body of a method's reply, without the header, which is different for every call.
Bytes MarshalBody(GVariant* body)
{
    const GObjectPointer<GDBusMessage> message(
        g_dbus_message_new_method_call(nullptr, "/", nullptr, "X"));
    g_dbus_message_set_body(message.get(), body);
    const Bytes bytes = Marshal(message.get());
    const auto size = static_cast<std::ptrdiff_t>(GetNumber(bytes, bodyLengthOffset));
    return Bytes(bytes.end() - size, bytes.end());
}

Bytes MarshalEmptyReply(GDBusMessage* call)
{
    const GObjectPointer<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
    return Marshal(reply.get());
}

/// The header of a reply that is followed by a body with properties.
Bytes MarshalPropertiesHeader(GDBusMessage* call, std::size_t bodySize)
{
    // Any body of this type gives the header of the real one, except for the length.
    const GObjectPointer<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
    g_dbus_message_set_body(reply.get(), g_variant_new_parsed("(@a{sv} {},)"));
    Bytes header = Marshal(reply.get());
    header.resize(header.size() - GetNumber(header, bodyLengthOffset));
    PutNumber(header, bodyLengthOffset, static_cast<std::uint32_t>(bodySize));
    return header;
}

class Bus
{
public:
    explicit Bus(const char* address)
    {
        GError* error = nullptr;
        m_stream.reset(g_dbus_address_get_stream_sync(address, nullptr, nullptr, &error));
        Check(error);
        m_input = g_io_stream_get_input_stream(m_stream.get());
        m_output = g_io_stream_get_output_stream(m_stream.get());
        Authenticate();
        CallBus("Hello", nullptr);
        CallBus("RequestName", g_variant_new("(su)", "org.velmora.Emporium", 0));
    }

    int Descriptor() const
    {
        return g_socket_get_fd(g_socket_connection_get_socket(G_SOCKET_CONNECTION(m_stream.get())));
    }

    void Write(const void* bytes, std::size_t size)
    {
        GError* error = nullptr;
        g_output_stream_write_all(m_output, bytes, size, nullptr, nullptr, &error);
        Check(error);
    }

    void Send(Bytes& message)
    {
        PutNumber(message, serialOffset, ++m_serial);
        Write(message.data(), message.size());
    }

    /// Writes all of them, in large pieces.
    void SendMany(std::vector<Bytes>& messages, std::size_t count)
    {
        constexpr std::size_t pieceSize = 1 << 18;
        Bytes piece;
        for (std::size_t number = 0; number < count; ++number) {
            Bytes& message = messages[number % messages.size()];
            PutNumber(message, serialOffset, ++m_serial);
            piece.insert(piece.end(), message.begin(), message.end());
            if (piece.size() >= pieceSize || number + 1 == count) {
                Write(piece.data(), piece.size());
                piece.clear();
            }
        }
    }

    GObjectPointer<GDBusMessage> Read()
    {
        constexpr std::size_t fixedPart = 16;
        Bytes bytes(fixedPart);
        ReadExactly(bytes.data(), bytes.size());
        GError* error = nullptr;
        const gssize size = g_dbus_message_bytes_needed(bytes.data(), bytes.size(), &error);
        Check(error);
        bytes.resize(static_cast<std::size_t>(size));
        ReadExactly(bytes.data() + fixedPart, bytes.size() - fixedPart);
        GObjectPointer<GDBusMessage> message(g_dbus_message_new_from_blob(
            bytes.data(), bytes.size(), G_DBUS_CAPABILITY_FLAGS_NONE, &error));
        Check(error);
        return message;
    }

    /// Returns when the bus daemon has processed everything that was sent before.
    void Synchronize() { CallBus("GetId", nullptr); }

private:
    void ReadExactly(void* buffer, std::size_t size)
    {
        gsize count = 0;
        GError* error = nullptr;
        g_input_stream_read_all(m_input, buffer, size, &count, nullptr, &error);
        Check(error);
        if (count != size) {
            Fail("the bus has closed the connection");
        }
    }

    void Authenticate()
    {
        std::ostringstream user;
        for (const char digit : std::to_string(getuid())) {
            user << std::hex << static_cast<int>(digit);
        }
        const std::string begin = std::string(1, '\0') + "AUTH EXTERNAL " + user.str() + "\r\n";
        Write(begin.data(), begin.size());
        std::string answer;
        while (answer.find("\r\n") == std::string::npos) {
            char character = 0;
            ReadExactly(&character, 1);
            answer += character;
        }
        if (answer.rfind("OK ", 0) != 0) {
            Fail("the bus refuses the authentication: " + answer);
        }
        Write("BEGIN\r\n", 7);
    }

    void CallBus(const char* method, GVariant* arguments)
    {
        const GObjectPointer<GDBusMessage> call(g_dbus_message_new_method_call(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method));
        if (arguments != nullptr) {
            g_dbus_message_set_body(call.get(), arguments);
        }
        Bytes bytes = Marshal(call.get());
        Send(bytes);
        const std::uint32_t serial = m_serial;
        while (true) {
            const auto message = Read();
            if (g_dbus_message_get_reply_serial(message.get()) == serial) {
                GError* error = nullptr;
                g_dbus_message_to_gerror(message.get(), &error);
                Check(error);
                return;
            }
        }
    }

    GObjectPointer<GIOStream> m_stream;
    GInputStream* m_input = nullptr;
    GOutputStream* m_output = nullptr;
    std::uint32_t m_serial = 0;
};

class Feeder
{
public:
    explicit Feeder(const char* address) : m_address(address)
    {
        Connect();
        SetPackages(0, 0, 0);
    }

    void Run()
    {
        std::cout << "ok\n" << std::flush;
        while (true) {
            std::array<GPollFD, 2> descriptors{
                {{STDIN_FILENO, G_IO_IN, 0}, {m_bus->Descriptor(), G_IO_IN, 0}}};
            g_poll(descriptors.data(), descriptors.size(), -1);
            if (descriptors[1].revents != 0) {
                ServeOrReconnect();
            } else if (descriptors[0].revents != 0 && !Obey()) {
                return;
            }
        }
    }

private:
    void Connect() { m_bus = std::make_unique<Bus>(m_address); }

    /// The bus disconnects a client that violates the protocol, for instance with an array of more than
    /// 64 MiB.
    void ServeOrReconnect()
    {
        try {
            Serve();
        } catch (const std::exception& error) {
            std::cerr << "feeder: " << error.what() << "; connecting again\n" << std::flush;
            Connect();
        }
    }

    void Serve()
    {
        const auto message = m_bus->Read();
        if (g_dbus_message_get_message_type(message.get()) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return;
        }
        const std::string method = g_dbus_message_get_member(message.get());
        if (method == "GetAllProperties") {
            Bytes header = MarshalPropertiesHeader(message.get(), m_properties.size());
            m_bus->Send(header);
            m_bus->Write(m_properties.data(), m_properties.size());
        } else {
            Bytes reply = MarshalEmptyReply(message.get());
            m_bus->Send(reply);
        }
    }

    void SetPackages(std::size_t count, std::size_t entries, std::size_t completed)
    {
        // Frees the last reply before the next one is created: they are large.
        m_properties = Bytes();
        m_properties = MarshalBody(AllProperties(count, entries, completed));
        m_signals.clear();
        m_packages = count;
        m_entries = entries;
    }

    void MarshalSignals()
    {
        for (std::size_t number = 0; number < m_packages; ++number) {
            const GObjectPointer<GDBusMessage> signal(g_dbus_message_new_signal(
                "/org/velmora/Emporium", "org.velmora.Emporium", "PackageUpgraded"));
            GVariant* const record = PackageRecord(number, m_entries);
            g_dbus_message_set_body(signal.get(), g_variant_new_tuple(&record, 1));
            m_signals.push_back(Marshal(signal.get()));
        }
    }

    bool Obey()
    {
        std::string line;
        char character = 0;
        while (read(STDIN_FILENO, &character, 1) == 1 && character != '\n') {
            line += character;
        }
        std::istringstream words(line);
        std::string verb;
        std::size_t count = 0;
        std::size_t entries = 0;
        std::size_t completed = 0;
        words >> verb >> count >> entries >> completed;
        if (verb == "packages") {
            SetPackages(count, entries, completed);
        } else if (verb == "flood") {
            if (m_signals.empty()) {
                MarshalSignals();
            }
            if (m_signals.empty()) {
                Fail("there are no packages to flood with");
            }
            m_bus->SendMany(m_signals, count);
            m_bus->Synchronize();
        } else {
            return false;
        }
        std::cout << "ok\n" << std::flush;
        return true;
    }

    const char* m_address;
    std::unique_ptr<Bus> m_bus;
    std::size_t m_packages = 0;
    std::size_t m_entries = 0;
    Bytes m_properties;
    std::vector<Bytes> m_signals;
};

} // namespace

int main()
{
    try {
        const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
        if (address == nullptr) {
            Fail("DBUS_SESSION_BUS_ADDRESS is not set");
        }
        Feeder(address).Run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "feeder: " << error.what() << '\n';
        return 1;
    }
}
