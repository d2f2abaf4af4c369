// SPDX-License-Identifier: BSD-3-Clause
#include "idle_loop.h"
#include "peer.h"
#include "session_test.h"

#include "testing/child_process.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

using namespace Emporium;
using namespace TestSupport;
using Emporium::Testing::ChildProcess;
using Emporium::Testing::Method;
using Emporium::Testing::Property;
using Emporium::Testing::Signal;

Strings Ids(const std::vector<Package>& packages)
{
    Strings ids;
    for (const Package& package : packages) {
        ids.push_back(package.GetID());
    }
    return ids;
}

class WithDaemon : public SessionTest
{
protected:
    /// Records every event of every type.
    void Follow(const DaemonConnection& connection)
    {
        const std::pair<EventType, std::string> types[] = {
            {EventType::PackageInstalled, "installed "},
            {EventType::PackageUpgraded, "upgraded "},
            {EventType::PackageRemoved, "removed "},
        };
        for (const auto& [type, name] : types) {
            subscriptions.push_back(connection.SubscribeToEvent(
                type, PackageCallback([this, text = name](const Package& package) {
                    events.push_back(text + package.GetID());
                })));
        }
        subscriptions.push_back(connection.SubscribeToEvent(
            EventType::OperationStatusChanged,
            OperationCallback([this](const Operation& operation) {
                events.push_back(operation.GetUUID() + " " +
                                 std::to_string(static_cast<int>(operation.GetStatus())));
            })));
    }

    Testing::Simulator simulator{session};
    Strings events;
    std::vector<EventSubscription> subscriptions;
};

TEST_F(WithDaemon, TheSnapshotIsLoaded)
{
    const auto connection = GetDaemonConnection();
    ASSERT_TRUE(static_cast<bool>(connection));
    EXPECT_EQ(connection.GetArchitecture(), "aarch64");
    EXPECT_EQ(connection.GetVeyraVersion(), "5.1.2");
    EXPECT_EQ(Ids(connection.GetPackageList()),
              (Strings{"org.example.calculator", "org.example.calendar", "org.example.camera",
                       "org.example.gallery", "com.sample.weather", "com.sample.notes"}));
    const auto package = connection.GetPackage("org.example.gallery");
    ASSERT_TRUE(static_cast<bool>(package));
    EXPECT_EQ(package->GetVersion(), "3.1.7");
    EXPECT_EQ(package->GetDeveloperCertificateSubgroup(), "system");
    EXPECT_EQ(package->GetDeveloperCertificateID(), "1a2b3c-platform");
}

TEST_F(WithDaemon, AnInstallIsFollowedToItsEnd)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    const std::string path = PackageFile("org.example.new");
    const auto uuid = connection.CreateOperation(InstallRequest(path));
    ASSERT_TRUE(static_cast<bool>(uuid)) << uuid.GetError();
    EXPECT_EQ(simulator.Calls(Method::Install).count, 1U);
    EXPECT_EQ(simulator.Calls(Method::Install).lastArgument, path);
    EXPECT_TRUE(static_cast<bool>(connection.GetActiveOperation(uuid.Get())));
    const std::string name = uuid.Get();
    RunUntil([&] { return !events.empty() && events.back() == name + " 100"; });
    EXPECT_EQ(events, (Strings{name + " 10", name + " 40", name + " 70",
                               "installed org.example.new", name + " 100"}));
    EXPECT_TRUE(static_cast<bool>(connection.GetPackage("org.example.new")));
    EXPECT_TRUE(connection.GetActiveOperations().empty());
    EXPECT_TRUE(connection.GetCompletedOperations().empty());
}

TEST_F(WithDaemon, ARemovalIsFollowedToItsEnd)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    const auto uuid = connection.CreateOperation(RemoveRequest("com.sample.notes"));
    ASSERT_TRUE(static_cast<bool>(uuid)) << uuid.GetError();
    EXPECT_EQ(simulator.Calls(Method::Remove).count, 1U);
    EXPECT_EQ(simulator.Calls(Method::Remove).lastArgument, "com.sample.notes");
    RunUntil([&] { return !events.empty() && events.back() == uuid.Get() + " 100"; });
    EXPECT_EQ(events[3], "removed com.sample.notes");
    EXPECT_TRUE(connection.GetPackage("com.sample.notes").HasError());
}

TEST_F(WithDaemon, AFailedOperationCarriesItsErrorCode)
{
    const auto connection = GetDaemonConnection();
    simulator.FailOperation("", Common::ErrorCode::FileConflict);
    std::optional<Operation> last;
    const auto subscription = connection.SubscribeToEvent(
        EventType::OperationStatusChanged,
        OperationCallback([&](const Operation& operation) { last = operation; }));
    ASSERT_TRUE(static_cast<bool>(
        connection.CreateOperation(InstallRequest(PackageFile("org.example.new")))));
    RunUntil([&] { return last && last->GetStatus() == Common::OperationStatus::Failed; });
    EXPECT_EQ(last->GetErrorCode(), Common::ErrorCode::FileConflict);
    EXPECT_EQ(last->GetPackageID(), "org.example.new");
    EXPECT_TRUE(connection.GetPackage("org.example.new").HasError());
}

TEST_F(WithDaemon, StartAndRestartReachTheDaemon)
{
    const auto connection = GetDaemonConnection();
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    EXPECT_TRUE(static_cast<bool>(connection.Restart("com.sample.weather")));
    EXPECT_EQ(simulator.Calls(Method::Start).count, 1U);
    EXPECT_EQ(simulator.Calls(Method::Start).lastArgument, "com.sample.notes");
    EXPECT_EQ(simulator.Calls(Method::Restart).count, 1U);
    EXPECT_EQ(simulator.Calls(Method::Restart).lastArgument, "com.sample.weather");
}

// --- failing calls ---

TEST_F(WithDaemon, ErrorsOfInstallAndRemoveHaveNameAndMessageThoseOfStartAndRestartOnlyTheMessage)
{
    const auto connection = GetDaemonConnection();
    for (const Method method : {Method::Install, Method::Remove, Method::Start, Method::Restart}) {
        simulator.FailCall(method, 1, "org.velmora.KVD.Error.FileConflict", "a message");
    }
    EXPECT_EQ(connection.CreateOperation(InstallRequest("/path")).GetError(),
              "Couldn't call org.velmora.Emporium.Install dbus method "
              "([org.velmora.KVD.Error.FileConflict] a message)");
    EXPECT_EQ(connection.CreateOperation(RemoveRequest("id")).GetError(),
              "Couldn't call org.velmora.Emporium.Remove dbus method "
              "([org.velmora.KVD.Error.FileConflict] a message)");
    EXPECT_EQ(connection.Start("id").GetError(),
              "Couldn't call org.velmora.Emporium.Start dbus method (a message)");
    EXPECT_EQ(connection.Restart("id").GetError(),
              "Couldn't call org.velmora.Emporium.Restart dbus method (a message)");
    EXPECT_TRUE(connection.GetActiveOperations().empty());
}

TEST_F(WithDaemon, AnEmptyReplyToInstallOrRemoveIsADefaultOperation)
{
    const auto connection = GetDaemonConnection();
    simulator.SetReply(Method::Install, "()");
    simulator.SetReply(Method::Remove, "()");
    EXPECT_EQ(connection.CreateOperation(InstallRequest("/path")).Get(), "");
    EXPECT_EQ(connection.CreateOperation(RemoveRequest("id")).Get(), "");
    ASSERT_EQ(connection.GetActiveOperations().size(), 2U);
    const Operation operation = connection.GetActiveOperations().front();
    EXPECT_EQ(operation.GetPackageID(), "");
    EXPECT_EQ(operation.GetType(), Common::OperationType::Install);
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 0);
    EXPECT_EQ(operation.GetErrorCode(), Common::ErrorCode::None);
}

TEST_F(WithDaemon, AReplyOfAnotherSignatureIsAnErrorAndChangesNothing)
{
    const auto connection = GetDaemonConnection();
    const auto expectError = [](const auto& result, const std::string& method, const char* body) {
        ASSERT_TRUE(result.HasError()) << method << ' ' << body;
        const std::string start =
            "Couldn't call org.velmora.Emporium." + method + " dbus method ([";
        EXPECT_EQ(result.GetError().rfind(start, 0), 0U) << result.GetError();
    };
    for (const char* body :
         {"('text',)", "(('a', 'b', 1, 2),)", "(('a', 'b', 1, 2, 3), 'more')", "([('a', 'b')],)"}) {
        simulator.SetReply(Method::Install, body);
        expectError(connection.CreateOperation(InstallRequest("/path")), "Install", body);
        simulator.SetReply(Method::Remove, body);
        expectError(connection.CreateOperation(RemoveRequest("id")), "Remove", body);
    }
    EXPECT_TRUE(connection.GetActiveOperations().empty());
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")))
        << "later calls still work";
}

TEST_F(WithDaemon, AReplyToStartOrRestartIsASuccessWhateverItsContent)
{
    const auto connection = GetDaemonConnection();
    for (const char* body : {"('text',)", "(5, ['a'])", "()"}) {
        simulator.SetReply(Method::Start, body);
        simulator.SetReply(Method::Restart, body);
        EXPECT_TRUE(static_cast<bool>(connection.Start("id"))) << body;
        EXPECT_TRUE(static_cast<bool>(connection.Restart("id"))) << body;
    }
}

TEST_F(WithDaemon, ADaemonThatDiesDuringACallFailsTheCall)
{
    const auto connection = GetDaemonConnection();
    simulator.ExitDuring(Method::Install);
    const auto result = connection.CreateOperation(InstallRequest("/path"));
    ASSERT_TRUE(result.HasError());
    EXPECT_EQ(
        result.GetError().rfind("Couldn't call org.velmora.Emporium.Install dbus method (", 0), 0U);
}

TEST_F(WithDaemon, ACallWaitsForASlowReply)
{
    const auto connection = GetDaemonConnection();
    simulator.DelayReply(Method::Start, std::chrono::milliseconds(50));
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
}

// --- the initial load ---

std::string LoadFailure()
{
    return OutputOf([] {
        const DaemonConnection connection;
        EXPECT_TRUE(static_cast<bool>(connection));
        EXPECT_EQ(connection.GetArchitecture(), "");
        EXPECT_TRUE(connection.GetPackageList().empty());
    });
}

TEST_F(WithDaemon, EachMissingPropertyIsNamedInTheLogAndTheSnapshotIsEmpty)
{
    const std::pair<Property, std::string> properties[] = {
        {Property::Architecture, "Architecture"},
        {Property::VeyraVersion, "VeyraVersion"},
        {Property::Packages, "Packages"},
        {Property::Operations, "Operations"},
        {Property::CompletedOperations, "CompletedOperations"},
    };
    for (const auto& [property, name] : properties) {
        simulator.Reset();
        simulator.DropProperty(property);
        EXPECT_EQ(LoadFailure(),
                  "[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method (Couldn't "
                  "parse " +
                      name + " property from initial emporium properties)\n");
    }
}

TEST_F(WithDaemon, TheFirstOfTwoMissingPropertiesIsNamed)
{
    simulator.DropProperty(Property::Operations);
    simulator.DropProperty(Property::Packages);
    EXPECT_EQ(LoadFailure(),
              "[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method (Couldn't parse "
              "Packages property from initial emporium properties)\n");
}

TEST_F(WithDaemon, APropertyOfAnotherTypeGivesAnEmptySnapshot)
{
    for (const Property property :
         {Property::Architecture, Property::Packages, Property::CompletedOperations}) {
        simulator.Reset();
        simulator.SetProperty(property, "5");
        const std::string log = LoadFailure();
        EXPECT_EQ(
            log.rfind("[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method ([", 0),
            0U)
            << log;
    }
}

TEST_F(WithDaemon, AReplyThatIsNotADictionaryGivesAnEmptySnapshot)
{
    simulator.SetReply(Method::GetAllProperties, "('text',)");
    const std::string log = LoadFailure();
    EXPECT_EQ(
        log.rfind("[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method ([", 0), 0U)
        << log;
}

TEST_F(WithDaemon, ANumberWithoutAnEnumeratorIsKept)
{
    simulator.SetProperty(Property::Operations, "[('u', 'p', 77, -5, 12)]");
    const DaemonConnection connection;
    const auto operation = connection.GetActiveOperation("u");
    ASSERT_TRUE(static_cast<bool>(operation));
    EXPECT_EQ(static_cast<int>(operation->GetType()), 77);
    EXPECT_EQ(static_cast<int>(operation->GetStatus()), -5);
    EXPECT_EQ(static_cast<int>(operation->GetErrorCode()), 12);
}

// --- signals ---

TEST_F(WithDaemon, ASignalWithADictionaryGivesThePackageWithItsFieldsInOrder)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    simulator.EmitSignal(
        Signal::PackageInstalled,
        "(('id', '9', 'group', 'certificate', {'a': <1>, 'b': <[('x', {'y': <2>})]>}),)");
    RunUntil([&] { return !events.empty(); });
    const auto package = connection.GetPackage("id");
    ASSERT_TRUE(static_cast<bool>(package));
    EXPECT_EQ(package->GetVersion(), "9");
    EXPECT_EQ(package->GetDeveloperCertificateSubgroup(), "group");
    EXPECT_EQ(package->GetDeveloperCertificateID(), "certificate");
}

TEST_F(WithDaemon, SignalsOfAnotherSignatureAreIgnoredAndLaterOnesAreDelivered)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    const std::size_t packages = connection.GetPackageList().size();
    for (const char* body : {"('text',)", "()", "(('id', 'version'),)", "('a', 'b', 'c')",
                             "(('id', '1', 's', 'c', @a{sv} {}), 5)"}) {
        simulator.EmitSignal(Signal::PackageInstalled, body);
        simulator.EmitSignal(Signal::PackageUpgraded, body);
    }
    for (const char* body : {"()", "(5,)", "('id', 'id')", "(['id'],)"}) {
        simulator.EmitSignal(Signal::PackageRemoved, body);
    }
    for (const char* body : {"('text',)", "(('u', 'p', 1, 2),)", "('u', 'p', 1, 2, 3)"}) {
        simulator.EmitSignal(Signal::OperationStatusChanged, body);
    }
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes"}));
    EXPECT_EQ(connection.GetPackageList().size(), packages - 1);
    EXPECT_TRUE(connection.GetActiveOperations().empty());
}

TEST_F(WithDaemon, AnEmptyStatusSignalIsADefaultOperation)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    simulator.EmitSignal(Signal::OperationStatusChanged, "()");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(events, (Strings{" 0"}));
}

TEST_F(WithDaemon, SignalsAreDeliveredInTheOrderOfArrivalInOneIteration)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    simulator.EmitSignal(Signal::PackageUpgraded,
                         "(('com.sample.weather', '4', '', '', @a{sv} {}),)");
    simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 5, 0),)");
    RunUntil([&] { return events.size() == 3; });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes", "upgraded com.sample.weather", "u 5"}));
}

// --- signals that arrive during a call ---

/// Signals that the bus library reads while a call waits for its reply.
class Stranded : public WithDaemon
{
protected:
    void SignalsBeforeReplyTo(Method method)
    {
        simulator.QueueSignal(method, Signal::OperationStatusChanged, "(('u', 'p', 0, 1, 0),)");
        simulator.QueueSignal(method, Signal::OperationStatusChanged, "(('u', 'p', 0, 2, 0),)");
    }

    /// Expects both signals, in order, although nothing else arrives from the bus.
    void ExpectBothDelivered()
    {
        EXPECT_TRUE(events.empty()) << "nothing is delivered from inside a call";
        RunUntil([&] { return events.size() >= 2; });
        EXPECT_EQ(events, (Strings{"u 1", "u 2"}));
    }

    /// Dispatches and discards what is still pending from the start.
    void Settle()
    {
        RunWhatIsReady();
        events.clear();
    }
};

TEST_F(Stranded, SignalsBeforeTheReplyToStartAreDelivered)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    ExpectBothDelivered();
}

TEST_F(Stranded, SignalsBeforeTheReplyToRestartAreDelivered)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Restart);
    EXPECT_TRUE(static_cast<bool>(connection.Restart("com.sample.notes")));
    ExpectBothDelivered();
}

TEST_F(Stranded, SignalsBeforeTheReplyToInstallAreDelivered)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Install);
    simulator.SetReply(Method::Install, "(('u', 'p', 0, 0, 0),)");
    EXPECT_TRUE(static_cast<bool>(connection.CreateOperation(InstallRequest("/path"))));
    EXPECT_EQ(static_cast<int>(connection.GetActiveOperation("u")->GetStatus()), 0);
    ExpectBothDelivered();
    EXPECT_EQ(static_cast<int>(connection.GetActiveOperation("u")->GetStatus()), 2);
}

TEST_F(Stranded, SignalsBeforeAnErrorReplyAreDelivered)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    simulator.FailCall(Method::Start, 1, Common::ErrorCode::Internal, "no");
    EXPECT_TRUE(connection.Start("com.sample.notes").HasError());
    ExpectBothDelivered();
}

TEST_F(Stranded, SignalsDuringTheInitialLoadAreDelivered)
{
    SignalsBeforeReplyTo(Method::GetAllProperties);
    const auto connection = GetDaemonConnection();
    Follow(connection);
    ExpectBothDelivered();
}

TEST_F(Stranded, SignalsDuringAFailedInitialLoadAreDelivered)
{
    SignalsBeforeReplyTo(Method::GetAllProperties);
    simulator.FailCall(Method::GetAllProperties, 1, Common::ErrorCode::Internal, "no");
    const auto connection = GetDaemonConnection();
    Follow(connection);
    ExpectBothDelivered();
}

TEST_F(Stranded, ACallFromACallbackStrandsNoSignal)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    const auto calling = connection.SubscribeToEvent(
        EventType::PackageRemoved, PackageCallback([&](const Package&) {
            const std::size_t before = events.size();
            EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
            EXPECT_EQ(events.size(), before) << "nothing is delivered from inside a call";
        }));
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    RunUntil([&] { return events.size() >= 3; });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes", "u 1", "u 2"}));
}

// --- the main loop ---

TEST_F(Stranded, AnIdleLoopNeverWakes)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    SignalsBeforeReplyTo(Method::Start);
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    RunUntil([&] { return events.size() >= 2; });
    RunWhatIsReady();
    EXPECT_LE(PollsWhileIdle(), 5) << "the time-out that ends the measurement is one of them";
}

gint lastPollTimeout = 0;

gint PollThatRecordsItsTimeout(GPollFD* descriptors, guint count, gint timeout)
{
    lastPollTimeout = timeout;
    return g_poll(descriptors, count, 0);
}

TEST_F(WithDaemon, AnIdleLoopPollsWithoutATimeout)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    RunWhatIsReady();
    g_main_context_set_poll_func(nullptr, PollThatRecordsItsTimeout);
    g_main_context_iteration(nullptr, TRUE);
    g_main_context_set_poll_func(nullptr, nullptr);
    EXPECT_EQ(lastPollTimeout, -1);
}

TEST_F(WithDaemon, UnderAThreadDefaultContextTheDefaultOneDeliversTheEvents)
{
    GMainContext* const other = g_main_context_new();
    g_main_context_push_thread_default(other);
    const auto connection = GetDaemonConnection();
    Follow(connection);
    g_main_context_pop_thread_default(other);
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes"}));
    g_main_context_unref(other);
}

class NestedLoop : public Stranded
{
protected:
    /// Subscribes a callback of PackageRemoved whose action runs a nested loop, as a dialog does.
    template <typename Action>
    EventSubscription NestIn(const DaemonConnection& connection, Action action)
    {
        return connection.SubscribeToEvent(
            EventType::PackageRemoved, PackageCallback([&events = events, action](const Package&) {
                events.push_back("nested begins");
                action();
                events.push_back("nested ends");
            }));
    }
};

TEST_F(NestedLoop, SignalsThatArriveInItAreDeliveredAfterTheCallback)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    const auto nested = NestIn(connection, [&] {
        simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 5, 0),)");
        EXPECT_LE(PollsWhileIdle(), 10) << "the nested loop must not spin";
    });
    const std::string log = OutputOf([&] {
        simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
        RunUntil([&] { return events.size() >= 4; });
    });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes", "nested begins", "nested ends", "u 5"}));
    EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
    simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 6, 0),)");
    RunUntil([&] { return events.back() == "u 6"; });
}

TEST_F(NestedLoop, WithACallThatLeavesSignalsInTheQueueNeitherReentersNorSpins)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    const auto nested = NestIn(connection, [&] {
        EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
        EXPECT_LE(PollsWhileIdle(), 10) << "the nested loop must not spin";
    });
    const std::string log = OutputOf([&] {
        simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
        RunUntil([&] { return events.size() >= 5; });
    });
    EXPECT_EQ(events,
              (Strings{"removed com.sample.notes", "nested begins", "nested ends", "u 1", "u 2"}));
    EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
    RunWhatIsReady();
    EXPECT_LE(PollsWhileIdle(), 5);
}

/// The callback runs from the source of the library's own queue, so the bus's source is the one that
/// must not be dispatched.
TEST_F(NestedLoop, FromTheQueueSourceNeitherReentersNorSpins)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    const auto nested = NestIn(connection, [&] {
        simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 5, 0),)");
        EXPECT_LE(PollsWhileIdle(), 10) << "the nested loop must not spin";
    });
    simulator.QueueSignal(Method::Start, Signal::PackageRemoved, "('com.sample.notes',)");
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
    const std::string log = OutputOf([&] { RunUntil([&] { return events.size() >= 4; }); });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes", "nested begins", "nested ends", "u 5"}));
    EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
    simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 6, 0),)");
    RunUntil([&] { return events.back() == "u 6"; });
}

/// Both sources are ready before the dispatch begins.
TEST_F(NestedLoop, WithBothSourcesReadyNeitherReentersNorSpins)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    const auto nested = NestIn(
        connection, [&] { EXPECT_LE(PollsWhileIdle(), 10) << "the nested loop must not spin"; });
    simulator.QueueSignal(Method::Start, Signal::PackageRemoved, "('com.sample.notes',)");
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
    simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 5, 0),)");
    const std::string log = OutputOf([&] { RunUntil([&] { return events.size() >= 4; }); });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes", "nested begins", "nested ends", "u 5"}));
    EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
}

/// Each runs from the source of the library's own queue, with the bus's source ready.
TEST_F(NestedLoop, ASecondOneNeitherReentersNorSpins)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    const auto nested = NestIn(connection, [&] {
        for (const char* body : {"(('u', 'p', 0, 5, 0),)", "(('u', 'p', 0, 6, 0),)"}) {
            simulator.EmitSignal(Signal::OperationStatusChanged, body);
            EXPECT_LE(PollsWhileIdle(), 10) << "the nested loop must not spin";
        }
    });
    for (const char* body : {"('com.sample.notes',)", "('com.sample.weather',)"}) {
        events.clear();
        simulator.QueueSignal(Method::Start, Signal::PackageRemoved, body);
        EXPECT_TRUE(static_cast<bool>(connection.Start("org.example.camera")));
        const std::string log = OutputOf([&] { RunUntil([&] { return events.size() >= 5; }); });
        events.erase(events.begin());
        EXPECT_EQ(events, (Strings{"nested begins", "nested ends", "u 5", "u 6"}));
        EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
    }
}

TEST_F(WithDaemon, LaterEventsAreDeliveredAfterACallbackThrows)
{
    const auto connection = GetDaemonConnection();
    const auto throwing = connection.SubscribeToEvent(
        EventType::PackageRemoved, PackageCallback([](const Package& package) {
            if (package.GetID() == "com.sample.notes") {
                throw std::runtime_error("callback");
            }
            throw 5;
        }));
    Follow(connection);
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.weather',)");
    simulator.EmitSignal(Signal::OperationStatusChanged, "(('u', 'p', 0, 5, 0),)");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(events, (Strings{"u 5"})) << "the failed deliveries ended before this subscriber";
    EXPECT_EQ(connection.GetPackageList().size(), 4U) << "the snapshot has changed nevertheless";
}

// --- the state of the world ---

TEST_F(WithDaemon, SignalsOfARestartedDaemonArrive)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    simulator.Stop();
    EXPECT_TRUE(connection.Start("com.sample.notes").HasError());
    EXPECT_EQ(connection.GetPackageList().size(), 6U) << "the snapshot stays";
    Testing::Simulator again(session);
    again.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(events, (Strings{"removed com.sample.notes"}));
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
}

TEST_F(WithDaemon, SignalsArriveAfterTheDaemonReturns)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    simulator.Vanish();
    const auto result = connection.Start("com.sample.notes");
    ASSERT_TRUE(result.HasError());
    simulator.Return();
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    RunUntil([&] { return !events.empty(); });
}

class WithoutDaemon : public SessionTest
{
};

TEST_F(WithoutDaemon, TheConnectionIsValidAndTheSnapshotEmpty)
{
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = GetDaemonConnection(); });
    EXPECT_TRUE(static_cast<bool>(*connection));
    EXPECT_EQ(connection->GetArchitecture(), "");
    EXPECT_TRUE(connection->GetPackageList().empty());
    EXPECT_EQ(log.rfind("[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method "
                        "([org.freedesktop.DBus.Error.ServiceUnknown] ",
                        0),
              0U)
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    EXPECT_EQ(connection->Start("id").GetError().rfind(
                  "Couldn't call org.velmora.Emporium.Start dbus method (The name ", 0),
              0U);
}

TEST_F(WithoutDaemon, SignalsOfADaemonThatAppearsLaterArrive)
{
    const auto connection = GetDaemonConnection();
    Strings events;
    const auto subscription = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&](const Package& package) { events.push_back(package.GetID()); }));
    Testing::Simulator simulator(session);
    simulator.EmitSignal(Signal::PackageInstalled, "(('late', '1', '', '', @a{sv} {}),)");
    RunUntil([&] { return !events.empty(); });
    EXPECT_EQ(Ids(connection.GetPackageList()), (Strings{"late"}));
    const DaemonConnection fresh;
    EXPECT_EQ(fresh.GetPackageList().size(), 6U) << "a new connection reads the daemon's state";
}

TEST_F(WithoutDaemon, WithoutABusTheConnectionIsInvalidAndTwoLinesAreLogged)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = GetDaemonConnection(); });
    EXPECT_FALSE(static_cast<bool>(*connection));
    EXPECT_EQ(log.rfind("[E] Failed to create a proxy for the emporium dbus interface\n[E] ", 0),
              0U)
        << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
    EXPECT_EQ(MessageOf<std::logic_error>([&] { connection->GetPackageList(); }),
              "Attempt to use the DaemonConnection::GetPackageList() method when the daemon "
              "connection is not valid");
    EXPECT_NO_THROW(connection->UnsubscribeFromEvent(EventSubscription()));
    // Each new connection tries to create a proxy; the process-wide connection is created only once.
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.Address().c_str(), 1);
    EXPECT_FALSE(static_cast<bool>(GetDaemonConnection()));
    EXPECT_TRUE(static_cast<bool>(DaemonConnection()));
}

TEST_F(WithDaemon, ALostBusIsLoggedOnceAndNothingSpins)
{
    const auto connection = GetDaemonConnection();
    Follow(connection);
    RunWhatIsReady();
    bus.Stop();
    std::string log;
    testing::internal::CaptureStdout();
    // Blocks until the loss makes the bus's source ready: no other source is.
    g_main_context_iteration(nullptr, TRUE);
    RunWhatIsReady();
    const int idlePolls = PollsWhileIdle();
    EXPECT_TRUE(connection.Start("id").HasError());
    EXPECT_TRUE(connection.CreateOperation(InstallRequest("/path")).HasError());
    RunWhatIsReady();
    log = testing::internal::GetCapturedStdout();
    EXPECT_LE(idlePolls, 5);
    EXPECT_EQ(log.rfind("[E] Failed to process dbus connection events (", 0), 0U) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_EQ(connection.GetPackageList().size(), 6U) << "queries still work";
}

Testing::PrivateBus* busThatIsLost = nullptr;

/// Stops the bus after the poll, when it is decided which source is dispatched.
gint PollThatLosesTheBus(GPollFD* descriptors, guint count, gint timeout)
{
    const gint ready = g_poll(descriptors, count, timeout);
    busThatIsLost->Stop();
    return ready;
}

TEST_F(Stranded, ABusLostWhileTheQueueIsDispatchedIsLoggedOnceAndNothingSpins)
{
    simulator.SetProperty(Property::Operations, "[('u', 'p', 0, 0, 0)]");
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    int idlePolls = 0;
    const std::string log = OutputOf([&] {
        busThatIsLost = &bus;
        g_main_context_set_poll_func(nullptr, PollThatLosesTheBus);
        g_main_context_iteration(nullptr, TRUE);
        idlePolls = PollsWhileIdle();
    });
    EXPECT_EQ(events, (Strings{"u 1", "u 2"}));
    EXPECT_LE(idlePolls, 5);
    EXPECT_EQ(log.rfind("[E] Failed to process dbus connection events (", 0), 0U) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(Stranded, ABusLostWithBothSourcesReadyIsLoggedOnceAndNothingSpins)
{
    simulator.SetProperty(Property::Operations, "[('u', 'p', 0, 0, 0)]");
    const auto connection = GetDaemonConnection();
    Follow(connection);
    Settle();
    SignalsBeforeReplyTo(Method::Start);
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    bus.Stop();
    int idlePolls = 0;
    const std::string log = OutputOf([&] {
        RunWhatIsReady();
        idlePolls = PollsWhileIdle();
    });
    EXPECT_EQ(events, (Strings{"u 1", "u 2"}));
    EXPECT_LE(idlePolls, 5);
    EXPECT_EQ(log.rfind("[E] Failed to process dbus connection events (", 0), 0U) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(WithDaemon, ACallOnALostBusTellsItsOwnCause)
{
    const auto connection = GetDaemonConnection();
    bus.Stop();
    const std::string log = OutputOf([] {
        g_main_context_iteration(nullptr, TRUE);
        RunWhatIsReady();
    });
    EXPECT_EQ(log.rfind("[E] Failed to process dbus connection events (", 0), 0U) << log;
    const std::string cause = std::string(std::strerror(ENOTCONN)) + ")";
    const std::pair<std::string, std::string> errors[] = {
        {"Install", connection.CreateOperation(InstallRequest("/path")).GetError()},
        {"Remove", connection.CreateOperation(RemoveRequest("id")).GetError()},
        {"Start", connection.Start("id").GetError()},
        {"Restart", connection.Restart("id").GetError()},
    };
    for (const auto& [method, error] : errors) {
        EXPECT_EQ(error.rfind("Couldn't call org.velmora.Emporium." + method + " dbus method (", 0),
                  0U)
            << error;
        EXPECT_EQ(error.substr(error.size() - std::min(cause.size(), error.size())), cause);
    }
}

// --- the connection's name ---

TEST_F(WithDaemon, TheConnectionsNameIsTheApplicationsIDAndASuffix)
{
    setenv("VEYRA_APP_ID", "a.b", 1);
    EXPECT_EQ(OutputOf([] { GetDaemonConnection(); }), "");
    EXPECT_TRUE(bus.NameHasOwner("a.b.KVD.Connection"));
}

TEST_F(WithDaemon, WithoutAnApplicationIDOneWarningIsLogged)
{
    unsetenv("VEYRA_APP_ID");
    std::optional<DaemonConnection> connection;
    EXPECT_EQ(OutputOf([&] { connection = GetDaemonConnection(); }),
              "[W] Failed to get application ID to register a dbus connection name\n");
    EXPECT_TRUE(static_cast<bool>(*connection));
    EXPECT_EQ(connection->GetPackageList().size(), 6U);
}

TEST_F(WithDaemon, AnInvalidNameLogsAWarning)
{
    for (const char* id : {"", "not valid"}) {
        setenv("VEYRA_APP_ID", id, 1);
        ChildProcess child({EMPORIUM_LISTER});
        const std::string line = child.ReadLine();
        EXPECT_EQ(line.rfind(std::string("[W] Failed to register the ") + id +
                                 ".KVD.Connection dbus connection name (",
                             0),
                  0U)
            << line;
        EXPECT_EQ(child.ReadLine(), "6 packages");
    }
}

TEST_F(WithDaemon, ATakenNameLogsAWarning)
{
    setenv("VEYRA_APP_ID", "taken", 1);
    Peer other(bus.Address());
    other.OwnName("taken.KVD.Connection");
    std::optional<DaemonConnection> connection;
    const std::string log = OutputOf([&] { connection = GetDaemonConnection(); });
    EXPECT_EQ(
        log.rfind("[W] Failed to register the taken.KVD.Connection dbus connection name (", 0), 0U)
        << log;
    EXPECT_EQ(connection->GetPackageList().size(), 6U);
}

// --- the cache across runs ---

TEST_F(WithDaemon, ACompletedOperationIsLoadedFromTheCacheInTheNextRun)
{
    simulator.SetProperty(Property::CompletedOperations, "[('u', 'p', 0, 100, 0)]");
    {
        const DaemonConnection first;
        EXPECT_EQ(first.GetCompletedOperations().size(), 1U);
    }
    simulator.Reset();
    const DaemonConnection second;
    ASSERT_EQ(second.GetCompletedOperations().size(), 1U);
    EXPECT_EQ(second.GetCompletedOperations().front().GetUUID(), "u");
}

// --- threads ---

TEST_F(WithDaemon, TheLibraryStartsNoThreadAndLeavesTheProcessStateUnchanged)
{
    ChildProcess child({EMPORIUM_LISTER, "--process-state"});
    EXPECT_EQ(child.ReadLine(), "6 packages");
    EXPECT_EQ(child.ReadLine(), "1 thread");
    EXPECT_EQ(child.ReadLine(), "nothing changed");
}

} // namespace
