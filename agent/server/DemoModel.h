// The demo device that vekgnmid serves, declared with the runtime's API
// (module "Demo"), and the change simulator that keeps it moving.
//
//   /                                   Vek::Dir (unnamed root)
//     devices                           Vek::Dir
//       dev1                            Demo::Device
//         system                        Demo::System: hostname, domainName, contact,
//                                       location, motd (JSON text) are config;
//                                       softwareVersion, bootTime (Seconds),
//                                       cpuLoad (double), memoryUsed and
//                                       memoryTotal (64-bit) are state
//         interfaces[name]              Demo::Interface, keyed by name "eth0" ...
//           description, mtu (64..9216), enabled            config
//           operStatus (Demo::OperStatus), lastChange (Seconds),
//           speed (double, Gb/s), macAddress, counters       state
//             (Demo::Counters: eight 64-bit counters)
//           addresses[Demo::Ipv4]       -> Demo::AddressInfo (prefixLength, origin)
//         neighbors[name]               Demo::Neighbor (all state): interface (a pointer
//                                       to the interface it was learnt on),
//                                       remoteSystem, remotePort, holdTime
//         routes[Demo::Ipv4Prefix]      -> Demo::RouteInfo (nextHop, metric,
//                                       preference, protocol)
//
// Interface i is "eth<i>" with the address 10.0.0.0 + 2i (a /31), the route
// to that /31, and every fourth interface a neighbour "nbr<i/4>" at the other
// address of the /31. Each
// interface with its route and share of a neighbour publishes about 24 leaves,
// so `--interfaces 42000` publishes over a million.
//
// Everything here runs on the agent's event-loop thread; the types are
// declared once per process.
#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include "ChangeSimulator.h"

namespace VekGnmi::Server {

struct DemoTypes {
  Vek::VekType operStatus;     // enumeration over int: up 1, down 2, testing 3, dormant 4
  Vek::VekType routeProtocol;  // enumeration over unsigned char: connected 1, static 2, ospf 3, bgp 4
  Vek::VekType counters;       // value: eight unsigned long long counters
  Vek::VekType ipv4;           // value with its own text form (dotted quad)
  Vek::VekType ipv4Prefix;     // value with its own text form ("10.0.0.0/31")
  Vek::VekType addressInfo;    // value: prefixLength (unsigned char), origin (string)
  Vek::VekType routeInfo;      // value: nextHop, metric, preference, protocol
  Vek::VekType interface;      // entity
  Vek::VekType neighbor;       // entity
  Vek::VekType system;         // entity
  Vek::VekType device;         // entity
};
const DemoTypes& demoTypes();

// Whether a leaf of `attr` is state (read-only to clients): the runtime's
// read-only attributes (an entity's name) and the model's state attributes,
// which carry a check that refuses every write made outside a DeviceWrite.
bool isStateAttribute(const Vek::VekAttrBase& attr);

// While one is alive on a thread, that thread writes as the device itself:
// state attributes accept its writes. The model builder and the change
// simulator hold one; the agent's Set never does.
class DeviceWrite {
 public:
  DeviceWrite();
  ~DeviceWrite();
  DeviceWrite(const DeviceWrite&) = delete;
  DeviceWrite& operator=(const DeviceWrite&) = delete;

 private:
  bool previous_;
};

// The modules of the model, as Capabilities lists them.
std::vector<gnmi::ModelData> demoModelData();

struct DemoModel {
  Vek::Ptr<Vek::Dir> root;
  Vek::Ptr<Vek::Dir> devices;
  Vek::Ptr<Vek::Entity> device;
  size_t interfaceCount = 0;
};

// Builds the tree with `interfaces` interfaces.
DemoModel buildDemoModel(size_t interfaces);

// "eth<index>".
std::string interfaceName(size_t index);

// Creates (or re-creates, replacing) interface `index` of `device` with its
// configuration, state, address, and points its neighbour back at it.
Vek::Ptr<Vek::Entity> createInterface(const Vek::Ptr<Vek::Entity>& device, size_t index);

// The demo device's change simulator, paced by ChangeSimulator: counters
// advance (most changes), operational statuses flap (one change in 20) and
// now and then (one change in 500) an interface is removed and re-created.
// Deterministic for a given seed.
class ChurnSimulator final : public ChangeSimulator {
 public:
  ChurnSimulator(DemoModel& model, double rate, uint64_t seed = 1, double maxLag = DEFAULT_MAX_LAG);

  uint64_t counterChanges() const { return counterChanges_; }
  uint64_t statusFlaps() const { return statusFlaps_; }
  uint64_t recreations() const { return recreations_; }

  // One change of each kind, on interface `index`.
  void advanceCounters(size_t index);
  void flapStatus(size_t index);
  void recreate(size_t index);

 private:
  bool canChange() const override { return model_.interfaceCount > 0; }
  void change() override;

  DemoModel& model_;
  std::mt19937_64 random_;
  uint64_t counterChanges_ = 0;
  uint64_t statusFlaps_ = 0;
  uint64_t recreations_ = 0;
};

}  // namespace VekGnmi::Server
