// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"
#include "simulator/command.h"
#include "simulator/faults/replay.h"
#include "simulator/faults/scenario.h"
#include "simulator/files/catalogue.h"
#include "simulator/files/input_error.h"
#include "simulator/files/recording.h"
#include "simulator/glib_ptr.h"
#include "simulator/options.h"
#include "simulator/print_error.h"
#include "simulator/simulated_daemon.h"

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
    explicit Program(const Options& options) : m_options(options)
    {
        for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
            g_unix_signal_add_full(G_PRIORITY_DEFAULT, number,
                                   number == SIGINT ? Interrupted : Terminated, this, nullptr);
        }
    }

    int Run()
    {
        if (!m_options.scenario.empty()) {
            m_scenario.emplace(m_options.scenario);
        }
        Catalogue catalogue = Start();
        return m_options.privateBus ? RunCommand(std::move(catalogue))
                                    : Serve(std::move(catalogue));
    }

private:
    Catalogue Start()
    {
        if (!m_options.replay.empty()) {
            Recording recording = ReadRecording(m_options.replay);
            m_events = std::move(recording.events);
            return std::move(recording.snapshot);
        }
        if (!m_options.catalogue.empty()) {
            return ReadCatalogue(m_options.catalogue);
        }
        if (m_options.packages != 0) {
            return GeneratedCatalogue(m_options.packages, m_options.dictionaryEntries);
        }
        return BuiltInCatalogue();
    }

    int Serve(Catalogue catalogue)
    {
        SimulatedDaemon daemon(m_options, std::move(catalogue), {},
                               [this](int status) { Quit(status); });
        Open(daemon);
        if (m_refused) {
            return exitUsage;
        }
        std::puts("ready");
        std::fflush(stdout);
        return Loop();
    }

    int RunCommand(Catalogue catalogue)
    {
        const PrivateBus bus;
        // The command keeps running when the simulator leaves the bus: it may test exactly that.
        SimulatedDaemon daemon(m_options, std::move(catalogue), bus.Address(), [](int) {});
        Open(daemon);
        if (m_refused) {
            return exitUsage;
        }
        try {
            m_command.emplace(m_options.command, bus.Address(),
                              [this](int status) { Quit(status); });
        } catch (const std::exception& error) {
            PrintError(error.what());
            return exitNoCommand;
        }
        return Loop();
    }

    void Open(SimulatedDaemon& daemon)
    {
        m_replay.emplace(
            std::move(m_events), m_options.speed, daemon.Lists(),
            [&daemon](const std::string& name, const Variant& body) { daemon.Emit(name, body); });
        daemon.Service().OnSnapshot([this] { m_replay->Start(); });
        daemon.TakeNames();
        if (m_scenario) {
            m_scenario->Run(
                [&daemon](const std::string& verb, GVariant* arguments) {
                    daemon.ControlInterface().Perform(verb, arguments);
                },
                [this](const std::string& message) { Refuse(message); });
        }
    }

    void Refuse(const std::string& message)
    {
        PrintError(message);
        m_refused = true;
        if (m_command) {
            m_command->Signal(SIGTERM);
        } else {
            Quit(exitUsage);
        }
    }

    int Loop()
    {
        if (!m_quit) {
            g_main_loop_run(m_loop.get());
        }
        // Both refer to the simulated daemon, which is destroyed before this object.
        m_scenario.reset();
        m_replay.reset();
        return m_refused ? exitUsage : m_status;
    }

    void Quit(int status)
    {
        m_status = status;
        m_quit = true;
        g_main_loop_quit(m_loop.get());
    }

    // Passes the signal on to the command if there is one. When the command ends, so does this program.
    gboolean Stop(int number)
    {
        if (m_command) {
            m_command->Signal(number);
        } else {
            Quit(0);
        }
        return G_SOURCE_CONTINUE;
    }

    static gboolean Interrupted(gpointer data) { return static_cast<Program*>(data)->Stop(SIGINT); }
    static gboolean Terminated(gpointer data) { return static_cast<Program*>(data)->Stop(SIGTERM); }

    const Options& m_options;
    LoopPtr m_loop{g_main_loop_new(nullptr, FALSE)};
    std::optional<Scenario> m_scenario;
    std::vector<RecordedEvent> m_events;
    std::optional<Replay> m_replay;
    std::optional<Command> m_command;
    bool m_refused = false;
    int m_status = 0;
    bool m_quit = false;
};

int Main(int argc, char** argv)
{
    const auto options = ParseOptions({argv + 1, argv + argc});
    if (!options) {
        return 0;
    }
    if (!options->makePackage.empty()) {
        WritePackageFile(options->makePackage, options->package);
        return 0;
    }
    return Program(*options).Run();
}

} // namespace

} // namespace Simulator

int main(int argc, char** argv)
{
    try {
        return Simulator::Main(argc, argv);
    } catch (const Simulator::UsageError& error) {
        Simulator::PrintError(std::string(error.what()) + "\nTry emporium-simulator --help.");
        return Simulator::exitUsage;
    } catch (const Simulator::InputError& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitUsage;
    } catch (const Simulator::NoBus& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitNoBus;
    } catch (const std::exception& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitFailed;
    }
}
