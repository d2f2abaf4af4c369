// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The names and signatures of the control interface, for the simulator and for tests that control it.
/// data/org.velmora.Emporium.Simulator.xml publishes the same; a test compares the two in both
/// directions.
namespace Simulator::ControlContract {

inline constexpr const char* busName = "org.velmora.Emporium.Simulator";
inline constexpr const char* objectPath = "/org/velmora/Emporium/Simulator";
inline constexpr const char* interfaceName = "org.velmora.Emporium.Simulator";

namespace Verb {
inline constexpr const char* failCall = "FailCall";
inline constexpr const char* delayReply = "DelayReply";
inline constexpr const char* setReply = "SetReply";
inline constexpr const char* queueSignal = "QueueSignal";
inline constexpr const char* exitDuring = "ExitDuring";
inline constexpr const char* calls = "Calls";
inline constexpr const char* dropProperty = "DropProperty";
inline constexpr const char* setProperty = "SetProperty";
inline constexpr const char* restoreProperty = "RestoreProperty";
inline constexpr const char* emitSignal = "EmitSignal";
inline constexpr const char* emitSignalFrom = "EmitSignalFrom";
inline constexpr const char* vanish = "Vanish";
inline constexpr const char* return_ = "Return";
inline constexpr const char* failOperation = "FailOperation";
inline constexpr const char* addPackage = "AddPackage";
inline constexpr const char* removePackage = "RemovePackage";
inline constexpr const char* addActiveOperation = "AddActiveOperation";
inline constexpr const char* addCompletedOperation = "AddCompletedOperation";
inline constexpr const char* reset = "Reset";
inline constexpr const char* startReplay = "StartReplay";
inline constexpr const char* waitForCall = "WaitForCall";
inline constexpr const char* waitForStatus = "WaitForStatus";
inline constexpr const char* waitForClient = "WaitForClient";
} // namespace Verb

struct VerbShape
{
    const char* name;
    const char* arguments;
    const char* reply;
};

inline constexpr VerbShape allVerbs[] = {
    {Verb::failCall, "suss", ""},
    {Verb::delayReply, "su", ""},
    {Verb::setReply, "ss", ""},
    {Verb::queueSignal, "sss", ""},
    {Verb::exitDuring, "s", ""},
    {Verb::calls, "s", "us"},
    {Verb::dropProperty, "s", ""},
    {Verb::setProperty, "sv", ""},
    {Verb::restoreProperty, "s", ""},
    {Verb::emitSignal, "ssu", ""},
    {Verb::emitSignalFrom, "ssssu", ""},
    {Verb::vanish, "u", ""},
    {Verb::return_, "", ""},
    {Verb::failOperation, "si", ""},
    {Verb::addPackage, "(ssssa{sv})b", ""},
    {Verb::removePackage, "sb", ""},
    {Verb::addActiveOperation, "(ssiii)b", ""},
    {Verb::addCompletedOperation, "(ssiii)b", ""},
    {Verb::reset, "", ""},
    {Verb::startReplay, "", ""},
    {Verb::waitForCall, "su", ""},
    {Verb::waitForStatus, "si", ""},
    {Verb::waitForClient, "", ""},
};

} // namespace Simulator::ControlContract
