// SPDX-License-Identifier: BSD-3-Clause
//
// Numbers and bus names of errors, converted in both directions.
#include "fuzz/input.h"

#include <common/error.h>

#include <string>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using Common::ErrorCode;
    using Common::ErrorCodeHelper;
    Fuzz::Input input(data, size);
    const auto number = input.Take<std::int32_t>();
    const std::string name(input.Rest());

    const ErrorCodeHelper byNumber(number);
    Fuzz::Require(static_cast<std::int32_t>(byNumber.errorCode()) == number, "a number is kept");
    const std::string& busName = byNumber.errorCodeAsDBusErrorString();
    const ErrorCode known = ErrorCodeHelper(busName).errorCode();
    Fuzz::Require(known == byNumber.errorCode() || known == ErrorCode::Internal,
                  "the bus name of a number leads back to it, or to Internal");
    Fuzz::Require(busName.ends_with("." + byNumber.errorCodeAsString()),
                  "the short name is the end of the bus name");
    Fuzz::Require(Common::make_error_code(byNumber.errorCode()).message() ==
                      Common::make_error_code(known).message(),
                  "a number has the message of its name");

    const ErrorCodeHelper byName(name);
    const std::string canonical =
        ErrorCodeHelper(static_cast<int>(byName.errorCode())).errorCodeAsDBusErrorString();
    Fuzz::Require(byName.errorCode() == ErrorCode::Internal || canonical == name,
                  "only the exact bus name has another number than Internal");
    Fuzz::Require(byName.errorCodeAsString() == name, "a name is kept");
    Fuzz::Require(byName.errorCodeAsDBusErrorString().empty(), "a name has no bus name");
    return 0;
}
