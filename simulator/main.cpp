// SPDX-License-Identifier: BSD-3-Clause
#include "catalogue.h"
#include "command.h"
#include "failures.h"
#include "options.h"
#include "private_bus.h"
#include "recording.h"
#include "replay.h"
#include "scenario.h"
#include "simulator.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

namespace Simulator {

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
constexpr int exitNoBus = 3;
constexpr int exitNoCommand = 127;

class Program
{
public:
    explicit Program(const Options& options) : options_(options)
    {
        for (const int number : {SIGTERM, SIGINT, SIGHUP})
            g_unix_signal_add_full(G_PRIORITY_DEFAULT, number,
                                   number == SIGINT ? Interrupted : Terminated, this, nullptr);
    }

    int Run()
    {
        if (!options_.scenario.empty())
            scenario_.emplace(options_.scenario);
        Catalogue catalogue = Start();
        return options_.privateBus ? RunCommand(std::move(catalogue)) : Serve(std::move(catalogue));
    }

private:
    Catalogue Start()
    {
        if (!options_.replay.empty()) {
            Recording recording = ReadRecording(options_.replay);
            events_ = std::move(recording.events);
            return std::move(recording.snapshot);
        }
        if (!options_.catalogue.empty())
            return ReadCatalogue(options_.catalogue);
        if (options_.packages != 0)
            return MadeUpCatalogue(options_.packages, options_.dictionaryEntries);
        return BuiltInCatalogue();
    }

    int Serve(Catalogue catalogue)
    {
        Simulator simulator(options_, std::move(catalogue), {},
                            [this](int status) { Quit(status); });
        Open(simulator);
        if (refused_)
            return exitUsage;
        std::puts("ready");
        std::fflush(stdout);
        return Loop();
    }

    int RunCommand(Catalogue catalogue)
    {
        const PrivateBus bus;
        // The command goes on when the simulator leaves the bus: that is what it may want to see.
        Simulator simulator(options_, std::move(catalogue), bus.Address(), [](int) {});
        Open(simulator);
        if (refused_)
            return exitUsage;
        try {
            command_.emplace(options_.command, bus.Address(), [this](int status) { Quit(status); });
        } catch (const std::exception& error) {
            g_printerr("emporium-simulator: %s\n", error.what());
            return exitNoCommand;
        }
        return Loop();
    }

    void Open(Simulator& simulator)
    {
        replay_.emplace(std::move(events_), options_.speed, simulator.Lists(),
                        [&simulator](const std::string& name, const Variant& body) {
                            simulator.Emit(name, body);
                        });
        simulator.Daemon().OnSnapshot([this] { replay_->Start(); });
        simulator.TakeNames();
        if (scenario_)
            scenario_->Run(
                [&simulator](const std::string& verb, GVariant* arguments) {
                    simulator.Verbs().Perform(verb, arguments);
                },
                [this](const std::string& message) { Refuse(message); });
    }

    void Refuse(const std::string& message)
    {
        g_printerr("emporium-simulator: %s\n", message.c_str());
        refused_ = true;
        if (command_)
            command_->Signal(SIGTERM);
        else
            Quit(exitUsage);
    }

    int Loop()
    {
        if (!quit_)
            g_main_loop_run(loop_.get());
        // Both refer to the simulator, which goes before this object.
        scenario_.reset();
        replay_.reset();
        return refused_ ? exitUsage : status_;
    }

    void Quit(int status)
    {
        status_ = status;
        quit_ = true;
        g_main_loop_quit(loop_.get());
    }

    // A command gets the signal, and its end is ours.
    gboolean Stop(int number)
    {
        if (command_)
            command_->Signal(number);
        else
            Quit(0);
        return G_SOURCE_CONTINUE;
    }

    static gboolean Interrupted(gpointer data) { return static_cast<Program*>(data)->Stop(SIGINT); }
    static gboolean Terminated(gpointer data) { return static_cast<Program*>(data)->Stop(SIGTERM); }

    const Options& options_;
    LoopPtr loop_{g_main_loop_new(nullptr, FALSE)};
    std::optional<Scenario> scenario_;
    std::vector<RecordedEvent> events_;
    std::optional<Replay> replay_;
    std::optional<Command> command_;
    bool refused_ = false;
    int status_ = 0;
    bool quit_ = false;
};

int Main(int argc, char** argv)
{
    const Options options = ParseOptions(argc, argv);
    if (!options.makePackage.empty()) {
        WritePackageFile(options.makePackage, options.package);
        return 0;
    }
    return Program(options).Run();
}

} // namespace

} // namespace Simulator

int main(int argc, char** argv)
{
    try {
        return Simulator::Main(argc, argv);
    } catch (const Simulator::UsageError& error) {
        g_printerr("emporium-simulator: %s\nTry emporium-simulator --help.\n", error.what());
        return Simulator::exitUsage;
    } catch (const Simulator::InputError& error) {
        g_printerr("emporium-simulator: %s\n", error.what());
        return Simulator::exitUsage;
    } catch (const Simulator::NoBus& error) {
        g_printerr("emporium-simulator: %s\n", error.what());
        return Simulator::exitNoBus;
    } catch (const std::exception& error) {
        g_printerr("emporium-simulator: %s\n", error.what());
        return Simulator::exitFailed;
    }
}
