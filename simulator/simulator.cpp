// SPDX-License-Identifier: BSD-3-Clause
#include "simulator.h"

#include "failures.h"

#include <utility>

namespace Simulator {

Simulator::Simulator(const Options& options, Catalogue catalogue, const std::string& busAddress,
                     std::function<void(int status)> gone)
    : bus_(busAddress), store_(std::move(catalogue), options.state),
      operations_(store_, options.pace,
                  [this](const std::string& name, const Variant& body) { Emit(name, body); }),
      daemon_(bus_, store_, operations_, faults_,
              [this, gone] {
                  operations_.Clear();
                  bus_.Close();
                  gone(0);
              }),
      control_(bus_, store_, operations_, faults_, daemon_)
{
    bus_.OnLost([gone] {
        g_printerr("emporium-simulator: the bus is gone\n");
        gone(1);
    });
}

// Called from the main loop, where nobody could catch: once the simulator has left the bus, its
// operations go on without being heard.
void Simulator::Emit(const std::string& name, const Variant& body)
{
    try {
        bus_.Emit({.name = name}, body);
    } catch (const BusError&) {
    }
}

void Simulator::TakeNames()
{
    bus_.Own(controlName);
    bus_.Own(daemonName);
}

} // namespace Simulator
