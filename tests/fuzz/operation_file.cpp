// SPDX-License-Identifier: BSD-3-Clause
//
// An operation file of any content. It is damaged, or an operation that can be saved and read again.
#include "fuzz/input.h"
#include "fuzz/operations.h"

#include <string>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Fuzz::InputFile file;
    file.Write(Fuzz::Input(data, size).Rest());
    const auto read = Emporium::Operation::FromFile(file.Path());
    if (!read) {
        Fuzz::Require(read.GetError() == "Couldn't deserialize operation from " + file.Path(),
                      "a damaged file has its one text");
        return 0;
    }
    Fuzz::Require(static_cast<bool>(read.Get().SaveToFile(file.Path())), "it can be saved");
    const auto again = Emporium::Operation::FromFile(file.Path());
    Fuzz::Require(again && Fuzz::AreEqual(again.Get(), read.Get()), "it is read as it was saved");
    return 0;
}
