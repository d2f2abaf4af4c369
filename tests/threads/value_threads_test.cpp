// SPDX-License-Identifier: BSD-3-Clause
#include "several_threads.h"

#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Emporium;
using TestSupport::OnSeveralThreads;
using TestSupport::severalThreads;

constexpr int rounds = 200;

Package SomePackage()
{
    return Package("org.example.clock", "1.0", "subgroup", "certificate", {{"key", "value"}});
}

Operation SomeOperation()
{
    return Operation("uuid", "org.example.clock", Common::OperationType::Upgrade,
                     static_cast<Common::OperationStatus>(101), Common::ErrorCode::FileConflict);
}

bool IsSomePackage(const Package& package)
{
    return package.GetID() == "org.example.clock" && package.GetVersion() == "1.0" &&
           package.GetDeveloperCertificateSubgroup() == "subgroup" &&
           package.GetDeveloperCertificateID() == "certificate";
}

bool IsSomeOperation(const Operation& operation)
{
    return operation.GetUUID() == "uuid" && operation.GetPackageID() == "org.example.clock" &&
           operation.GetType() == Common::OperationType::Upgrade &&
           static_cast<int>(operation.GetStatus()) == 101 &&
           operation.GetErrorCode() == Common::ErrorCode::FileConflict;
}

/// Reads one handle from all threads, and copies it there.
template <typename Handle, typename IsGood>
void ReadAndCopyOnSeveralThreads(const Handle& handle, IsGood isGood)
{
    OnSeveralThreads([&](std::size_t) {
        bool good = true;
        for (int round = 0; round < rounds; ++round) {
            std::optional<Handle> first(handle);
            const Handle second = *first;
            first.reset();
            good = good && isGood(handle) && isGood(second);
        }
        return good;
    });
}

TEST(ValueThreads, SeveralThreadsReadAndCopyOnePackage)
{
    ReadAndCopyOnSeveralThreads(SomePackage(), IsSomePackage);
}

TEST(ValueThreads, SeveralThreadsReadAndCopyOneOperation)
{
    ReadAndCopyOnSeveralThreads(SomeOperation(), IsSomeOperation);
}

TEST(ValueThreads, SeveralThreadsReadAndCopyOneResult)
{
    ReadAndCopyOnSeveralThreads(
        Result<Package>(SuccessResult<Package>(SomePackage())),
        [](const auto& result) { return !result.HasError() && IsSomePackage(result.Get()); });
    ReadAndCopyOnSeveralThreads(
        Result<Operation>(SuccessResult<Operation>(SomeOperation())),
        [](const auto& result) { return result && result->GetUUID() == "uuid"; });
    ReadAndCopyOnSeveralThreads(
        Result<std::string>(SuccessResult<std::string>("text")),
        [](const auto& result) { return result && result.Get() == "text"; });
    ReadAndCopyOnSeveralThreads(Result<void>(SuccessResult<void>()),
                                [](const auto& result) { return !result.HasError(); });
}

TEST(ValueThreads, SeveralThreadsReadAndCopyOneFailure)
{
    const auto isFailure = [](const auto& result) { return !result && result.GetError() == "why"; };
    ReadAndCopyOnSeveralThreads(Result<Package>(ErrorResult("why")), isFailure);
    ReadAndCopyOnSeveralThreads(Result<void>(ErrorResult("why")), isFailure);
    ReadAndCopyOnSeveralThreads(ErrorResult("why"),
                                [](const ErrorResult& error) { return error.Get() == "why"; });
}

TEST(ValueThreads, TheLastCopyMayBeDestroyedOnAnyThread)
{
    for (int round = 0; round < rounds / 10; ++round) {
        using Handles = std::pair<Result<Package>, Operation>;
        const Result<Package> result = SuccessResult<Package>(SomePackage());
        std::vector<std::optional<Handles>> copies(severalThreads,
                                                   Handles(result, SomeOperation()));
        OnSeveralThreads([&](std::size_t number) {
            std::optional<Handles>& mine = copies.at(number);
            const bool good = IsSomePackage(mine->first.Get()) && IsSomeOperation(mine->second);
            mine.reset();
            return good;
        });
    }
}

TEST(ValueThreads, EachThreadSavesItsCopyOfAnOperation)
{
    const TestSupport::TemporaryDirectory directory;
    const Operation operation = SomeOperation();
    OnSeveralThreads([&](std::size_t number) {
        const std::string path = directory.Path() / std::to_string(number);
        for (int round = 0; round < rounds / 10; ++round) {
            if (!operation.SaveToFile(path)) {
                return false;
            }
            const Result<Operation> read = Operation::FromFile(path);
            if (!read || !IsSomeOperation(read.Get())) {
                return false;
            }
        }
        return true;
    });
}

} // namespace
