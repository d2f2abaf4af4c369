// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/contract.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Fuzz {

/// Writes the header of a bus message in either byte order, around a body of any content. The bus
/// libraries write only their own order, and only what is correct.
class WireWriter
{
public:
    enum class Order : char
    {
        Little = 'l',
        Big = 'B'
    };

    explicit WireWriter(Order order) : m_order(order) {}

    void Align(std::size_t size) { m_bytes.resize((m_bytes.size() + size - 1) / size * size); }
    void Byte(std::uint8_t value) { m_bytes += static_cast<char>(value); }

    void Number(std::uint32_t value)
    {
        Align(sizeof value);
        for (std::size_t index = 0; index < sizeof value; ++index) {
            const std::size_t place = m_order == Order::Little ? index : sizeof value - 1 - index;
            Byte(static_cast<std::uint8_t>(value >> (8 * place)));
        }
    }

    void Text(std::string_view text)
    {
        Number(static_cast<std::uint32_t>(text.size()));
        m_bytes += text;
        Byte(0);
    }

    void Signature(std::string_view signature)
    {
        Byte(static_cast<std::uint8_t>(signature.size()));
        m_bytes += signature;
        Byte(0);
    }

    /// A field of the header: its code, and the type of the value that follows.
    void Field(std::uint8_t code, std::string_view type)
    {
        Align(8);
        Byte(code);
        Signature(type);
    }

    void Append(std::string_view bytes) { m_bytes += bytes; }
    const std::string& Bytes() const { return m_bytes; }

private:
    const Order m_order;
    std::string m_bytes;
};

namespace Wire {

inline constexpr std::uint8_t reply = 2;
inline constexpr std::uint8_t signal = 4;
inline constexpr std::uint8_t pathField = 1;
inline constexpr std::uint8_t interfaceField = 2;
inline constexpr std::uint8_t memberField = 3;
inline constexpr std::uint8_t replySerialField = 5;
inline constexpr std::uint8_t signatureField = 8;

} // namespace Wire

/// A whole message; `writeFields` writes the fields of its header except the signature.
template <typename WriteFields>
std::string Message(WireWriter::Order order, std::uint8_t type, std::string_view signature,
                    std::string_view body, WriteFields writeFields)
{
    WireWriter fields(order);
    writeFields(fields);
    if (!signature.empty()) {
        fields.Field(Wire::signatureField, "g");
        fields.Signature(signature);
    }
    constexpr std::uint8_t noFlags = 0;
    constexpr std::uint8_t version = 1;
    constexpr std::uint32_t serial = 1;
    WireWriter message(order);
    message.Byte(static_cast<std::uint8_t>(order));
    message.Byte(type);
    message.Byte(noFlags);
    message.Byte(version);
    message.Number(static_cast<std::uint32_t>(body.size()));
    message.Number(serial);
    message.Number(static_cast<std::uint32_t>(fields.Bytes().size()));
    message.Append(fields.Bytes());
    message.Align(8);
    message.Append(body);
    return message.Bytes();
}

inline std::string SignalMessage(WireWriter::Order order, std::string_view member,
                                 std::string_view signature, std::string_view body)
{
    return Message(order, Wire::signal, signature, body, [&](WireWriter& fields) {
        fields.Field(Wire::pathField, "o");
        fields.Text(Emporium::Contract::objectPath);
        fields.Field(Wire::interfaceField, "s");
        fields.Text(Emporium::Contract::interfaceName);
        fields.Field(Wire::memberField, "s");
        fields.Text(member);
    });
}

/// A reply to the first call of a connection.
inline std::string ReplyMessage(WireWriter::Order order, std::string_view signature,
                                std::string_view body)
{
    constexpr std::uint32_t serialOfCall = 1;
    return Message(order, Wire::reply, signature, body, [&](WireWriter& fields) {
        fields.Field(Wire::replySerialField, "u");
        fields.Number(serialOfCall);
    });
}

} // namespace Fuzz
