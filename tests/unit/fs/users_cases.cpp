// SPDX-License-Identifier: BSD-3-Clause
//
// Prints the users' homes, or the error with its code.

#include "common/fs/fs.h"

#include <common/error.h>

#include <iostream>

int main()
{
    try {
        for (const std::filesystem::path& home : Common::GetUsersHomeDirectories()) {
            std::cout << home.native() << '\n';
        }
        std::cout << "end\n";
    } catch (const Common::Error& error) {
        std::cout << error.code().value() << ' ' << error.what() << '\n';
    }
}
