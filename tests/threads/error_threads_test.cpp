// SPDX-License-Identifier: BSD-3-Clause
#include "several_threads.h"

#include <common/error.h>

#include <string>
#include <system_error>

namespace {

using namespace Common;
using TestSupport::OnSeveralThreads;

bool KnowsTheErrorModel()
{
    const std::error_code code = make_error_code(ErrorCode::BadPackageID);
    return code.category() == ErrorCodeCategroty() &&
           std::string(code.category().name()) == "Common::ErrorCategory" &&
           code.message() == "The package has an invalid ID" &&
           ErrorCodeCategroty().message(4) == "Internal error occurred" &&
           ErrorCodeHelper(28).errorCodeAsString() == "FileConflict" &&
           ErrorCodeHelper(28).errorCodeAsDBusErrorString() ==
               "org.velmora.KVD.Error.FileConflict" &&
           ErrorCodeHelper("org.velmora.KVD.Error.DowngradeAttempt").errorCode() ==
               ErrorCode::DowngradeAttempt &&
           ErrorCodeHelper("unknown").errorCode() == ErrorCode::Internal;
}

TEST(ErrorThreads, TheErrorModelMayBeFirstUsedOnSeveralThreadsAtOnce)
{
    OnSeveralThreads([](std::size_t) { return KnowsTheErrorModel(); });
}

TEST(ErrorThreads, EachThreadCatchesItsOwnError)
{
    OnSeveralThreads([](std::size_t number) {
        const std::string message = "error of thread " + std::to_string(number);
        try {
            throw Error(make_error_code(ErrorCode::Filesystem), message);
        } catch (const std::system_error& error) {
            return error.what() == message && error.code().message() == "Filesystem error occurred";
        }
    });
}

} // namespace
