// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/message_body.h"

#include "simulator/faults/scenario.h"
#include "simulator/files/input_error.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using Simulator::ParseBody;
using Simulator::ParseBusValue;

std::string Repeated(const char* text, int times)
{
    std::string result;
    for (int time = 0; time < times; ++time) {
        result += text;
    }
    return result;
}

std::string Nested(const char* open, int depth, const char* close)
{
    return Repeated(open, depth) + "1" + Repeated(close, depth);
}

TEST(BusValue, AnyTypeOfTheBusIsParsed)
{
    for (const char* text : {"1", "'text'", "true", "uint64 7", "objectpath '/a'", "handle 3",
                             "{'a': <1>}", "[<1>, <'x'>]", "(1, ['x'])", "@a{sv} {}", "<<<'x'>>>",
                             "'\\u00e4 \\U0001f600'", "'\\\\ud800 is no escape'"}) {
        EXPECT_TRUE(ParseBusValue(text)) << text;
    }
    EXPECT_TRUE(ParseBusValue(Nested("[", 20, "]")));
    EXPECT_TRUE(ParseBusValue(Nested("<", 30, ">")));
}

TEST(BusValue, AnEmptyBodyIsParsed)
{
    EXPECT_TRUE(ParseBody(""));
    EXPECT_TRUE(ParseBody("()"));
}

TEST(BusValue, ATypeThatTheBusLacksIsRefusedInsideVariantsToo)
{
    for (const char* type : {"just 1", "((),)", "[()]"}) {
        const std::string text = type;
        EXPECT_THROW(ParseBusValue(text), std::invalid_argument) << text;
        EXPECT_THROW(ParseBusValue("<" + text + ">"), std::invalid_argument) << text;
        EXPECT_THROW(ParseBusValue("{'key': <[<" + text + ">]>}"), std::invalid_argument) << text;
    }
    EXPECT_THROW(ParseBusValue("()"), std::invalid_argument);
    EXPECT_THROW(ParseBusValue("<()>"), std::invalid_argument);
}

TEST(BusValue, ATypeThatIsTooLongForTheBusIsRefused)
{
    const std::string text = "(" + Repeated("1,", 300) + ")";
    EXPECT_THROW(ParseBusValue(text), std::invalid_argument);
    EXPECT_THROW(ParseBusValue("<" + text + ">"), std::invalid_argument);
}

TEST(BusValue, AValueThatIsNestedTooDeeplyForTheBusIsRefused)
{
    EXPECT_THROW(ParseBusValue(Nested("[", 40, "]")), std::invalid_argument);
    EXPECT_THROW(ParseBusValue(Nested("(", 40, ",)")), std::invalid_argument);
    EXPECT_THROW(ParseBusValue(Nested("<", 70, ">")), std::invalid_argument);
    EXPECT_THROW(ParseBusValue(Nested("<[", 30, "]>")), std::invalid_argument);
}

TEST(BusValue, AnEscapeThatIsNoCharacterIsRefused)
{
    for (const char* text : {"'\\ud800'", "['a', '\\uDFFF']", "<'\\U00110000'>"}) {
        EXPECT_THROW(ParseBusValue(text), std::invalid_argument) << text;
    }
}

TEST(Scenario, AnArgumentThatTheBusCannotTransportIsRefused)
{
    const TestSupport::TemporaryDirectory directory;
    const std::string path = directory.Path() / "scenario";
    for (const char* value : {"<just 1>", "<[<()>]>", "<'\\ud800'>"}) {
        std::ofstream(path) << "SetProperty 'Packages', " << value << "\n";
        EXPECT_THROW(Simulator::Scenario().AddFile(path), Simulator::InputError) << value;
    }
    std::ofstream(path) << "SetProperty 'Packages', <1>\nReset\n";
    EXPECT_NO_THROW(Simulator::Scenario().AddFile(path));
}

} // namespace
