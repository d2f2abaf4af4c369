// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"
#include "simulator/command.h"
#include "simulator/control_client.h"
#include "simulator/faults/replay.h"
#include "simulator/faults/scenario.h"
#include "simulator/files/catalogue.h"
#include "simulator/files/input_error.h"
#include "simulator/files/recording.h"
#include "simulator/glib_ptr.h"
#include "simulator/options.h"
#include "simulator/output.h"
#include "simulator/print_error.h"
#include "simulator/private_home.h"
#include "simulator/signals.h"
#include "simulator/simulated_daemon.h"
#include "simulator/trace.h"

#include <algorithm>
#include <clocale>
#include <csignal>
#include <exception>
#include <new>
#include <optional>

namespace Simulator {

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
constexpr int exitNoBus = 3;
constexpr int exitNoCommand = 127;
constexpr int exitSignal = 128;

// timeout(1) sends SIGTERM twice in a row, to its child and to its process group.
constexpr gint64 sameTerminationMicroseconds = 100000;

class Program
{
public:
    explicit Program(const Options& options) : m_options(options) {}

    int Run()
    {
        ReadScenario();
        Catalogue catalogue = Start();
        if (m_options.check) {
            return 0;
        }
        return m_options.privateBus ? RunCommand(std::move(catalogue))
                                    : Serve(std::move(catalogue));
    }

private:
    void ReadScenario()
    {
        for (const std::string& verb : m_options.verbs) {
            m_scenario.AddVerb(verb);
        }
        if (!m_options.scenario.empty()) {
            m_scenario.AddFile(m_options.scenario);
        }
        if (m_options.replay.empty()) {
            m_scenario.RequireNoReplay();
        }
    }

    Catalogue Start()
    {
        if (!m_options.replay.empty()) {
            Recording recording = ReadRecording(m_options.replay);
            m_events = std::move(recording.events);
            if (recording.cut) {
                PrintError(m_options.replay + ": the last line is incomplete, and is left out");
            }
            return std::move(recording.snapshot);
        }
        if (!m_options.catalogue.empty()) {
            return ReadCatalogue(m_options.catalogue);
        }
        if (m_options.packages) {
            return GeneratedCatalogue(*m_options.packages, m_options.dictionaryEntries);
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
        WatchSignals();
        if (!IsOutputClosed()) {
            Print("ready\n");
        }
        return Loop();
    }

    int RunCommand(Catalogue catalogue)
    {
        Signals& signals = WatchSignals();
        std::optional<PrivateBus> bus;
        try {
            bus.emplace(PrivateBus::Limits{}, signals.Descriptor());
        } catch (const Interrupted& error) {
            PrintError(error.what());
            return exitSignal + signals.Next().number;
        }
        Environment environment = CreateHome(m_options.home, bus->Directory());
        environment.emplace_back("DBUS_SESSION_BUS_ADDRESS", bus->Address());
        // The command keeps running when the simulator leaves the bus: it may test exactly that.
        SimulatedDaemon daemon(m_options, std::move(catalogue), bus->Address(), [](int) {});
        Open(daemon);
        if (m_refused) {
            return exitUsage;
        }
        try {
            m_command.emplace(m_options.command, environment, m_ignored,
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
            [&daemon](const std::string& name, const Variant& body) { daemon.Emit(name, body); },
            [&daemon](bool present) { daemon.SetPresent(present); });
        if (!m_options.replay.empty()) {
            daemon.ControlInterface().OnStartReplay([this] { m_replay->Start(); });
        }
        if (!m_options.paused) {
            daemon.Service().OnSnapshot([this] { m_replay->Start(); });
        }
        daemon.TakeNames();
        m_scenario.Run({[&daemon](const std::string& verb, GVariant* arguments) {
                            daemon.ControlInterface().Perform(verb, arguments);
                        },
                        [&daemon](const std::string& verb, GVariant* arguments) {
                            return daemon.ControlInterface().ConditionOf(verb, arguments);
                        },
                        [&daemon](Progress::Condition condition, Progress::Continuation then) {
                            daemon.Happened().WaitFor(std::move(condition), std::move(then));
                        },
                        [this](const std::string& message) { Refuse(message); }});
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
        m_replay.reset(); // Refers to the simulated daemon, which is destroyed before this object.
        return m_refused ? exitUsage : m_status;
    }

    void Quit(int status)
    {
        m_status = status;
        m_quit = true;
        g_main_loop_quit(m_loop.get());
    }

    Signals& WatchSignals()
    {
        return m_signals.emplace(
            [this](int number, bool fromTerminal) { Stop(number, fromTerminal); });
    }

    void Stop(int number, bool fromTerminal)
    {
        if (!m_command) {
            Quit(0);
        } else if (fromTerminal && m_command->IsInThisProcessGroup()) {
            return; // The command has received it too, and this program ends when the command does.
        } else if (number == SIGTERM) {
            Terminate(*m_command);
        } else {
            m_command->Signal(number == SIGHUP ? HangupSignal(*m_command) : number);
        }
    }

    // An interactive shell ignores SIGTERM, and another command may ignore SIGHUP.
    static int HangupSignal(const Command& command)
    {
        return command.IsInThisProcessGroup() ? SIGTERM : SIGHUP;
    }

    // The first SIGTERM is passed on. A command that ignores it is killed by the second.
    void Terminate(Command& command)
    {
        const gint64 now = g_get_monotonic_time();
        if (m_terminated == 0) {
            m_terminated = now;
            command.Signal(SIGTERM);
        } else if (now - m_terminated > sameTerminationMicroseconds) {
            command.Signal(SIGKILL);
        }
    }

    const Options& m_options;
    const IgnoredSignals m_ignored;
    LoopPtr m_loop{g_main_loop_new(nullptr, FALSE)};
    Scenario m_scenario;
    std::vector<RecordedEvent> m_events;
    std::optional<Replay> m_replay;
    std::optional<Command> m_command;
    std::optional<Signals> m_signals;
    gint64 m_terminated = 0;
    bool m_refused = false;
    int m_status = 0;
    bool m_quit = false;
};

int Main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    if (!arguments.empty() && arguments.front() == "ctl") {
        return RunControlClient({arguments.begin() + 1, arguments.end()});
    }
    const auto options = ParseOptions(arguments);
    if (!options) {
        return 0;
    }
    if (!options->makePackage.empty()) {
        WritePackageFile(options->makePackage, options->package);
        return 0;
    }
    if (options->verbose) {
        Trace::Enable();
    }
    return Program(*options).Run();
}

} // namespace

} // namespace Simulator

int main(int argc, char** argv)
{
    Simulator::OpenStandardDescriptors();
    // Messages in the language of the user, but numbers as in every file and option.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    try {
        return Simulator::Main(argc, argv);
    } catch (const Simulator::UsageError& error) {
        Simulator::PrintError(error.what());
        Simulator::PrintError("try emporium-simulator --help");
        return Simulator::exitUsage;
    } catch (const Simulator::InputError& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitUsage;
    } catch (const Simulator::NoBus& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitNoBus;
    } catch (const std::bad_alloc&) {
        Simulator::PrintError("not enough memory");
        return Simulator::exitFailed;
    } catch (const std::exception& error) {
        Simulator::PrintError(error.what());
        return Simulator::exitFailed;
    }
}
