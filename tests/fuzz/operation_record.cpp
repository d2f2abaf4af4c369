// SPDX-License-Identifier: BSD-3-Clause
//
// An operation file that was saved, and then damaged in a few places.
#include "fuzz/input.h"
#include "fuzz/operations.h"

#include <string>

namespace {

void Damage(std::string& content, Fuzz::Input& input)
{
    const std::size_t place = input.Take<std::uint16_t>() % (content.size() + 1);
    switch (input.Below(4)) {
    case 0:
        content.resize(place);
        break;
    case 1:
        content.insert(place, input.Text());
        break;
    case 2: // a length, anywhere
        content.replace(place, sizeof(std::size_t), input.Bytes(sizeof(std::size_t)));
        break;
    default:
        content.replace(place, 1, input.Bytes(1));
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Fuzz::InputFile file;
    Fuzz::Input input(data, size);
    const Emporium::Operation operation = Fuzz::TakeOperation(input);
    Fuzz::Require(static_cast<bool>(operation.SaveToFile(file.Path())), "it can be saved");
    const std::string saved = file.Read();
    const auto intact = Emporium::Operation::FromFile(file.Path());
    Fuzz::Require(intact && Fuzz::AreEqual(intact.Get(), operation), "it is read as it was saved");

    std::string damaged = saved;
    while (!input.IsEmpty()) {
        Damage(damaged, input);
    }
    file.Write(damaged);
    const auto read = Emporium::Operation::FromFile(file.Path());
    if (read) {
        const std::string& uuid = read.Get().GetUUID();
        const std::string& packageID = read.Get().GetPackageID();
        Fuzz::Require(damaged.find(uuid) != std::string::npos &&
                          damaged.find(packageID) != std::string::npos,
                      "the texts are those of the file");
        // The fields before the texts are shorter in archives of older versions, whose number the
        // damage may have written.
        Fuzz::Require(damaged.size() > uuid.size() + packageID.size(),
                      "nothing was read beyond the end of the file");
    }
    return 0;
}
