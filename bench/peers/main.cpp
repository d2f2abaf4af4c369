// SPDX-License-Identifier: BSD-3-Clause

// Runs one task of a peer. Writes the results to standard output, one JSON object on each line.
//
//   load REPEATS   opens, then loads REPEATS more times
//   signals COUNT  opens, writes {"ready":1}, waits for COUNT signals
//   calls COUNT    opens, then calls Start COUNT times
//   start-up ID    opens with subscriptions and looks a package up by its ID
//   exit PACKAGES  opens, expects this many packages, and exits as a program does
#include "peers/peer.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

std::int64_t Now(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/// Nanoseconds since its construction.
struct Stopwatch
{
    std::int64_t wall = Now(CLOCK_MONOTONIC);
    std::int64_t processor = Now(CLOCK_PROCESS_CPUTIME_ID);

    std::int64_t Wall() const { return Now(CLOCK_MONOTONIC) - wall; }
    std::int64_t Processor() const { return Now(CLOCK_PROCESS_CPUTIME_ID) - processor; }
};

/// Reads a value of this process's memory status, in KiB.
long MemoryStatus(std::string_view name)
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long size = 0;
    while (status >> word) {
        if (word == name) {
            status >> size;
            return size;
        }
    }
    throw std::runtime_error("this system does not report " + std::string(name));
}

void Load(Bench::Peer& peer, int repeats)
{
    peer.Open();
    // What was mapped from files at the peak is still mapped.
    const long peak = MemoryStatus("VmHWM:");
    std::cout << "{\"peak_memory\":" << peak
              << ",\"peak_own_memory\":" << peak - MemoryStatus("RssFile:")
              << ",\"packages\":" << peer.PackageCount() << "}\n";
    for (int repeat = 0; repeat < repeats; ++repeat) {
        peer.Forget();
        const Stopwatch loading;
        peer.Load();
        std::cout << "{\"load_wall\":" << loading.Wall()
                  << ",\"load_processor\":" << loading.Processor() << "}\n";
    }
}

void Signals(Bench::Peer& peer, int count)
{
    peer.Open();
    int received = 0;
    bool goOn = true;
    std::size_t characters = 0;
    peer.Subscribe([&](const Emporium::Package& package) {
        characters += package.GetVersion().size();
        goOn = ++received < count;
    });
    std::cout << "{\"ready\":1}\n" << std::flush;
    const Stopwatch watch;
    peer.Run(goOn);
    std::cout << "{\"signals_wall\":" << watch.Wall()
              << ",\"signals_processor\":" << watch.Processor() << ",\"received\":" << received
              << ",\"characters\":" << characters << "}\n";
}

void Calls(Bench::Peer& peer, int count)
{
    peer.Open();
    peer.Settle();
    peer.Start("org.example.package-0");
    const Stopwatch watch;
    for (int call = 0; call < count; ++call) {
        peer.Start("org.example.package-0");
    }
    std::cout << "{\"call_wall\":" << watch.Wall() / count
              << ",\"call_processor\":" << watch.Processor() / count << "}\n";
}

void StartUp(Bench::Peer& peer, const std::string& id)
{
    const Stopwatch opening;
    peer.Open();
    const std::int64_t opened = opening.Wall();
    peer.Subscribe([](const Emporium::Package&) {});
    const std::string version = peer.GetVersion(id);
    std::cout << "{\"answered_at\":" << Now(CLOCK_MONOTONIC) << ",\"open_wall\":" << opened
              << ",\"start_processor\":" << Now(CLOCK_PROCESS_CPUTIME_ID) << ",\"version\":\""
              << version << "\"}\n";
}

void Exit(Bench::Peer& peer, std::size_t packages)
{
    peer.Open();
    if (peer.PackageCount() != packages) {
        throw std::runtime_error(std::to_string(peer.PackageCount()) +
                                 " packages were loaded, not " + std::to_string(packages));
    }
}

void Work(std::string_view task, const std::string& argument)
{
    const auto peer = Bench::MakePeer();
    if (task == "exit") {
        Exit(*peer, std::strtoul(argument.c_str(), nullptr, 10));
    } else if (task == "load") {
        Load(*peer, std::atoi(argument.c_str()));
    } else if (task == "signals") {
        Signals(*peer, std::atoi(argument.c_str()));
    } else if (task == "calls") {
        Calls(*peer, std::atoi(argument.c_str()));
    } else if (task == "start-up") {
        StartUp(*peer, argument);
    } else {
        throw std::invalid_argument("there is no such task: " + std::string(task));
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc != 3) {
            throw std::invalid_argument("usage: PEER load|signals|calls|start-up|exit ARGUMENT");
        }
        const std::string_view task = argv[1];
        Work(task, argv[2]);
        std::cout << std::flush;
        if (task != "exit") {
            _exit(0); // only "exit" measures the time of destructors
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
