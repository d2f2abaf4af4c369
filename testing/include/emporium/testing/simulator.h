// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/testing/daemon_interface.h>
#include <emporium/testing/deadline.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Emporium::Testing {

class Session;

/// How a Simulator is started.
struct SimulatorOptions
{
    /// The path of the program. Empty: the environment variable EMPORIUM_SIMULATOR; if it is not set,
    /// the program that was installed with this library; if that has been moved, the one in PATH.
    std::string program;

    /// How long the start, each verb and each wait may take.
    std::chrono::milliseconds deadline = defaultDeadline;
};

/// How often a method of the daemon was called, and with what.
struct MethodCalls
{
    unsigned count = 0;
    std::string lastArgument; ///< Empty if the method has no argument or was not called.
};

/// The simulated daemon, in a process of its own, and its control interface.
///
/// Each function that has the name of a verb of the control interface calls it, and returns when the
/// simulator has done what it says. docs/simulator.md describes the verbs. They use GIO and a
/// connection of their own, and run no main loop: no callback of the application is called meanwhile.
///
/// A body is a tuple of arguments in GVariant text format, such as "('one',)": see Body().
///
/// All functions throw Error if the verb is refused, or the simulator does not run, and
/// DeadlineExceeded if it does not answer in time. Use the object on one thread at a time. The
/// process ends with this object, and with the thread that created it. The destructor copies what it
/// wrote to its standard error to that of the test.
///
///     Emporium::Testing::Simulator simulator(session);
///     simulator.FailCall(Method::Install, 1, Common::ErrorCode::FileConflict);
class Simulator
{
public:
    /// Starts the simulator on the bus of the session. Its operations take no time unless the
    /// arguments (those of emporium-simulator) say otherwise.
    /// @throws Error if the program is missing or ends at once, with what it printed
    explicit Simulator(const Session& session, const std::vector<std::string>& arguments = {},
                       const SimulatorOptions& options = {});

    /// The same on any bus.
    explicit Simulator(const std::string& busAddress,
                       const std::vector<std::string>& arguments = {},
                       const SimulatorOptions& options = {});

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    /// Changes how long each of the next verbs and waits may take.
    void SetDeadline(std::chrono::milliseconds deadline);

    /// @name The process
    /// @{

    /// Ends the process, with SIGTERM or SIGKILL, and waits for its end. Does nothing if it has ended.
    void Stop();
    void Kill();

    /// Suspends the process: calls are not answered. It is suspended when the function returns.
    void Suspend();
    void Resume();

    /// Waits for the end of the process, and returns its status as waitpid(2) gives it; -1 if it had
    /// been waited for before.
    int Wait();

    /// What the process has written to its standard error so far. The argument "--verbose" makes that
    /// one line for each call, signal and verb.
    std::string Errors() const;

    /// @}
    /// @name Calls of the application
    /// @{

    /// Makes the nth call from now (1: the next) fail with the error. An empty message stands for
    /// the usual one.
    void FailCall(Method method, unsigned nth, Common::ErrorCode error,
                  const std::string& message = {});
    /// The same with any error name of D-Bus.
    void FailCall(Method method, unsigned nth, const std::string& errorName,
                  const std::string& message = {});

    /// Delays all replies of the method. 0 ends the delay.
    void DelayReply(Method method, std::chrono::milliseconds delay);

    /// Answers the next call with this body, and does nothing else.
    void SetReply(Method method, const std::string& body);
    /// The same for Install and Remove, which reply with an operation.
    void SetReply(Method method, const OperationRecord& operation);

    /// Sends the signal just before the method's next reply or error.
    void QueueSignal(Method method, Signal signal, const std::string& body);

    /// Leaves the bus and ends during the next call, without a reply.
    void ExitDuring(Method method);

    /// Returns how often the method was called since the start or Reset(), and the last argument.
    MethodCalls Calls(Method method);

    /// @}
    /// @name What the daemon reports
    /// @{

    /// Omits the property from the reply of GetAllProperties.
    void DropProperty(Property property);
    /// Gives it any value, in GVariant text format: "5", "'aarch64'", "[('u', 'p', 0, 40, 0)]".
    void SetProperty(Property property, const std::string& value);
    /// Undoes both.
    void RestoreProperty(Property property);

    /// Sends the signal this many times. Does not change the lists of the daemon.
    void EmitSignal(Signal signal, const std::string& body, unsigned count = 1);
    /// The same from another object or interface, with any name.
    void EmitSignalFrom(const std::string& path, const std::string& interface,
                        const std::string& signal, const std::string& body, unsigned count = 1);

    /// Change the lists of the daemon and, with `announce`, send the signal of the change.
    void AddPackage(const PackageRecord& package, bool announce = true);
    void RemovePackage(const std::string& id, bool announce = true);
    /// The operation makes no progress: it stays until it is added to the completed ones.
    void AddActiveOperation(const OperationRecord& operation, bool announce = true);
    void AddCompletedOperation(const OperationRecord& operation, bool announce = true);

    /// @}
    /// @name Faults
    /// @{

    /// Releases the daemon's bus name for this long; 0: until Return().
    void Vanish(std::chrono::milliseconds duration = std::chrono::milliseconds(0));
    /// Claims the name again.
    void Return();

    /// Ends the next operation on the package (empty: on any) with status Failed and this error.
    /// Several calls fail as many operations.
    void FailOperation(const std::string& packageID, Common::ErrorCode error);

    /// Restores lists, faults and counts to those at the start.
    void Reset();

    /// Starts the replay of a recording (arguments "--replay FILE --paused").
    void StartReplay();

    /// @}
    /// @name Waiting
    ///
    /// They block the thread. An application that runs on it makes no progress meanwhile: use them for
    /// an application in another process or thread, and RunUntil() otherwise.
    /// @{

    /// Waits until the method was called that many times since the start or Reset().
    void WaitForCall(Method method, unsigned count = 1);
    /// Waits until the latest operation on the package (empty: on any) has had the status.
    void WaitForStatus(const std::string& packageID, Common::OperationStatus status);
    /// Waits until a program that is on the bus has read the properties.
    void WaitForClient();

    /// @}

    /// Calls any verb, with its arguments as in a scenario: Call("FailCall", "'Install', 1, '28', ''").
    /// Returns the reply in GVariant text format.
    std::string Call(const std::string& verb, const std::string& arguments);

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Emporium::Testing
