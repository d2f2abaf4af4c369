// SPDX-License-Identifier: BSD-3-Clause

// Measures decoding, lookups, lists, upkeep and the cache without a bus, each at several sizes and
// compared with a plain implementation of the same task.
#include "client/completed_operations_cache.h"
#include "client/keyed_list.h"
#include "dbus/decoder.h"
#include "dbus/idbus_proxy.h"

#include <emporium/emporium.h>

#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

using namespace Emporium;

std::string PackageID(std::size_t number)
{
    return "org.example.package-" + std::to_string(number);
}

Package MakePackage(std::size_t number)
{
    return Package(PackageID(number), "1.20.3", "subgroup-17", "0f1e2d3c4b5a69788796a5b4c3d2e1f0",
                   {});
}

std::vector<Package> MakePackages(std::size_t count)
{
    std::vector<Package> packages;
    packages.reserve(count);
    for (std::size_t number = 0; number < count; ++number) {
        packages.push_back(MakePackage(number));
    }
    return packages;
}

std::vector<Operation> MakeOperations(std::size_t count, Common::OperationStatus status)
{
    std::vector<Operation> operations;
    operations.reserve(count);
    for (std::size_t number = 0; number < count; ++number) {
        operations.emplace_back("7d444840-9dc0-11d1-b245-5ffdce" + std::to_string(100000 + number),
                                PackageID(number), Common::OperationType::Install, status,
                                Common::ErrorCode::None);
    }
    return operations;
}

std::size_t SizeOf(const benchmark::State& state)
{
    return static_cast<std::size_t>(state.range(0));
}

/// The IDs to look up, shuffled so that no cache can predict them: at most `different` of them.
std::vector<std::string> Questions(std::size_t packages, std::size_t different)
{
    std::vector<std::size_t> numbers(packages);
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(20261121));
    numbers.resize(std::min(packages, different));
    std::vector<std::string> questions;
    questions.reserve(numbers.size());
    for (const std::size_t number : numbers) {
        questions.push_back(PackageID(number));
    }
    return questions;
}

constexpr std::size_t aHundred = 100;
constexpr std::size_t allOfThem = SIZE_MAX;

/// Times `step`, which it calls with the items, cycling through them.
template <typename Item, typename Step>
void Cycle(benchmark::State& state, const std::vector<Item>& items, Step step)
{
    std::size_t next = 0;
    for (auto _ : state) {
        step(items[next]);
        next = next + 1 < items.size() ? next + 1 : 0;
    }
}

class ReplayProxy final : public IDBusProxy
{
public:
    Properties properties;

    Result<Properties> GetAllProperties() override { return SuccessResult<Properties>(properties); }
    Result<Operation> Install(const std::string&) override { return ErrorResult("no daemon"); }
    Result<Operation> Remove(const std::string&) override { return ErrorResult("no daemon"); }
    Result<void> Start(const std::string&) override { return ErrorResult("no daemon"); }
    Result<void> Restart(const std::string&) override { return ErrorResult("no daemon"); }
};

std::shared_ptr<ReplayProxy> TheProxy()
{
    static const auto proxy = std::make_shared<ReplayProxy>();
    return proxy;
}

DaemonConnection ConnectionWith(std::size_t packages)
{
    TheProxy()->properties.Packages = MakePackages(packages);
    return DaemonConnection();
}

void GetPackage(benchmark::State& state, std::size_t different)
{
    const DaemonConnection connection = ConnectionWith(SizeOf(state));
    Cycle(state, Questions(SizeOf(state), different), [&](const std::string& question) {
        benchmark::DoNotOptimize(connection.GetPackage(question));
    });
}

void GetPackageOfAHundred(benchmark::State& state)
{
    GetPackage(state, aHundred);
}

void GetPackageOfAll(benchmark::State& state)
{
    GetPackage(state, allOfThem);
}

using PackageList = KeyedList<Package, &Package::GetID>;

void FindInIndex(benchmark::State& state)
{
    PackageList list;
    list.Assign(MakePackages(SizeOf(state)));
    Cycle(state, Questions(SizeOf(state), aHundred),
          [&](const std::string& question) { benchmark::DoNotOptimize(list.Find(question)); });
}

void FindByScan(benchmark::State& state)
{
    const std::vector<Package> list = MakePackages(SizeOf(state));
    Cycle(state, Questions(SizeOf(state), aHundred), [&](const std::string& question) {
        benchmark::DoNotOptimize(
            std::find_if(list.begin(), list.end(),
                         [&](const Package& package) { return package.GetID() == question; }));
    });
}

/// Shows what the machine's memory costs at this size, whatever container holds the packages.
void FindAllInMap(benchmark::State& state)
{
    std::unordered_map<std::string, Package> map;
    for (const Package& package : MakePackages(SizeOf(state))) {
        map.emplace(package.GetID(), package);
    }
    Cycle(state, Questions(SizeOf(state), allOfThem), [&](const std::string& question) {
        benchmark::DoNotOptimize(SuccessResult<Package>(map.find(question)->second));
    });
}

void PackageUpgraded(benchmark::State& state)
{
    const DaemonConnection connection = ConnectionWith(SizeOf(state));
    Cycle(state, MakePackages(std::min(SizeOf(state), aHundred)),
          [](const Package& package) { TheProxy()->PackageUpgraded(package); });
}

void PackageRemovedAndInstalled(benchmark::State& state)
{
    const DaemonConnection connection = ConnectionWith(SizeOf(state));
    Cycle(state, MakePackages(std::min(SizeOf(state), aHundred)), [](const Package& package) {
        TheProxy()->PackageRemoved(package.GetID());
        TheProxy()->PackageInstalled(package);
    });
}

void OperationChanged(benchmark::State& state)
{
    constexpr auto running = static_cast<Common::OperationStatus>(10);
    TheProxy()->properties.Operations = MakeOperations(SizeOf(state), running);
    const DaemonConnection connection = ConnectionWith(0);
    Cycle(state, MakeOperations(std::min(SizeOf(state), aHundred), running),
          [](const Operation& operation) { TheProxy()->OperationStatusChanged(operation); });
    TheProxy()->properties.Operations.clear();
}

void GetPackageList(benchmark::State& state)
{
    const DaemonConnection connection = ConnectionWith(SizeOf(state));
    for (auto _ : state) {
        benchmark::DoNotOptimize(connection.GetPackageList());
    }
}

void CopyVector(benchmark::State& state)
{
    const std::vector<Package> list = MakePackages(SizeOf(state));
    for (auto _ : state) {
        std::vector<Package> copy(list);
        benchmark::DoNotOptimize(copy);
    }
}

/// True for one package in ten.
bool EndsWithSeven(const Package& package)
{
    return package.GetID().back() == '7';
}

void GetPackageListFiltered(benchmark::State& state)
{
    const DaemonConnection connection = ConnectionWith(SizeOf(state));
    const PackageFilter filter = EndsWithSeven;
    for (auto _ : state) {
        benchmark::DoNotOptimize(connection.GetPackageList(filter));
    }
}

void CopyVectorFiltered(benchmark::State& state)
{
    const std::vector<Package> list = MakePackages(SizeOf(state));
    const PackageFilter filter = EndsWithSeven;
    for (auto _ : state) {
        std::vector<Package> copy;
        std::copy_if(list.begin(), list.end(), std::back_inserter(copy), filter);
        benchmark::DoNotOptimize(copy);
    }
}

using Dictionary = std::map<std::string, sdbus::Variant>;
using PackageRecord = sdbus::Struct<std::string, std::string, std::string, std::string, Dictionary>;
using OperationRecord =
    sdbus::Struct<std::string, std::string, std::int32_t, std::int32_t, std::int32_t>;

sdbus::PlainMessage ReplyWith(std::size_t packages)
{
    const Dictionary dictionary = {
        {"attribute-0", sdbus::Variant("a value of some length")},
        {"attribute-1", sdbus::Variant("a value of some length")},
        {"attribute-2", sdbus::Variant(std::uint32_t{2000})},
        {"attribute-3", sdbus::Variant(true)},
    };
    std::vector<PackageRecord> records;
    for (const Package& package : MakePackages(packages)) {
        records.emplace_back(package.GetID(), package.GetVersion(),
                             package.GetDeveloperCertificateSubgroup(),
                             package.GetDeveloperCertificateID(), dictionary);
    }
    sdbus::PlainMessage reply = sdbus::createPlainMessage();
    reply << std::map<std::string, sdbus::Variant>{
        {"Architecture", sdbus::Variant("x86_64")},
        {"VeyraVersion", sdbus::Variant("5.1.0.24")},
        {"Packages", sdbus::Variant(records)},
        {"Operations", sdbus::Variant(std::vector<OperationRecord>{})},
        {"CompletedOperations", sdbus::Variant(std::vector<OperationRecord>{})},
    };
    reply.seal();
    return reply;
}

void DecodeReply(benchmark::State& state)
{
    auto reply = ReplyWith(SizeOf(state));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Decoder::ReadProperties(reply));
        reply.rewind(true);
    }
}

void DecodeVariants(benchmark::State& state)
{
    auto reply = ReplyWith(SizeOf(state));
    for (auto _ : state) {
        std::map<std::string, sdbus::Variant> properties;
        reply >> properties;
        std::vector<Package> packages;
        for (const auto& record : properties.at("Packages").get<std::vector<PackageRecord>>()) {
            packages.emplace_back(record.get<0>(), record.get<1>(), record.get<2>(),
                                  record.get<3>(), std::map<std::string, std::string>());
        }
        benchmark::DoNotOptimize(packages);
        reply.rewind(true);
    }
}

namespace fs = std::filesystem;

fs::path CacheHome()
{
    return fs::path(std::getenv("XDG_CACHE_HOME"));
}

void WriteAndReadCache(benchmark::State& state)
{
    const auto operations = MakeOperations(SizeOf(state), Common::OperationStatus::Succeeded);
    for (auto _ : state) {
        CompletedOperationsCache::Write(operations);
        const auto read = CompletedOperationsCache::ReadAndRemove();
        if (read.size() != operations.size()) {
            state.SkipWithError("the cache has lost operations");
            return;
        }
    }
}

/// One operation's file, as the cache writes it.
std::string FileContent()
{
    const fs::path file = CacheHome() / "sample";
    const Operation sample = MakeOperations(1, Common::OperationStatus::Succeeded).front();
    if (!sample.SaveToFile(file.string())) {
        throw std::runtime_error("the sample file cannot be written");
    }
    std::string content(fs::file_size(file), '\0');
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(descriptor, content.data(), content.size());
    close(descriptor);
    fs::remove(file);
    content.resize(static_cast<std::size_t>(size));
    return content;
}

/// Writes, reads and removes as many files with the same names and length, with plain system calls.
void WriteAndReadPlainFiles(benchmark::State& state)
{
    const std::string content = FileContent();
    const fs::path directory = CacheHome() / "plain";
    std::vector<std::string> files;
    for (const Operation& operation :
         MakeOperations(SizeOf(state), Common::OperationStatus::Succeeded)) {
        files.push_back((directory / operation.GetUUID()).string());
    }
    std::array<char, 4096> buffer{};
    for (auto _ : state) {
        mkdir(directory.c_str(), 0700);
        for (const std::string& file : files) {
            const int descriptor =
                open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            benchmark::DoNotOptimize(write(descriptor, content.data(), content.size()));
            close(descriptor);
        }
        for (const std::string& file : files) {
            const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
            benchmark::DoNotOptimize(read(descriptor, buffer.data(), buffer.size()));
            close(descriptor);
        }
        for (const std::string& file : files) {
            unlink(file.c_str());
        }
        rmdir(directory.c_str());
    }
}

constexpr std::int64_t few = 50;
constexpr std::int64_t hundred = 100;
constexpr std::int64_t many = 10'000;
constexpr std::int64_t veryMany = 100'000;

BENCHMARK(FindByScan)->Arg(few)->Arg(hundred);
BENCHMARK(FindInIndex)->Arg(few)->Arg(hundred);
BENCHMARK(FindAllInMap)->Arg(hundred)->Arg(veryMany);
BENCHMARK(GetPackageOfAHundred)->Arg(hundred)->Arg(many)->Arg(veryMany);
BENCHMARK(GetPackageOfAll)->Arg(hundred)->Arg(veryMany);
BENCHMARK(PackageUpgraded)->Arg(hundred)->Arg(veryMany);
BENCHMARK(PackageRemovedAndInstalled)->Arg(hundred)->Arg(veryMany);
BENCHMARK(OperationChanged)->Arg(hundred)->Arg(veryMany);
BENCHMARK(CopyVector)->Arg(hundred)->Arg(many);
BENCHMARK(GetPackageList)->Arg(hundred)->Arg(many);
BENCHMARK(CopyVectorFiltered)->Arg(hundred)->Arg(many);
BENCHMARK(GetPackageListFiltered)->Arg(hundred)->Arg(many);
BENCHMARK(DecodeVariants)->Arg(hundred)->Arg(many);
BENCHMARK(DecodeReply)->Arg(hundred)->Arg(many);
BENCHMARK(WriteAndReadPlainFiles)->Arg(many)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(WriteAndReadCache)->Arg(many)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

namespace Emporium {

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    return TheProxy();
}

} // namespace Emporium

int main(int argc, char** argv)
{
    if (std::getenv("XDG_CACHE_HOME") == nullptr) {
        std::cerr << "XDG_CACHE_HOME must name a directory for the cache's files\n";
        return 1;
    }
    fs::create_directories(CacheHome());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
