// A sample model for tests: a device under a directory tree, with interfaces
// keyed by name, counters (a value type), an operational status enumeration,
// addresses keyed by an IPv4 value type printed as dotted text, pointers
// between interfaces, an array of VLAN ids, a JSON-text attribute, and
// collections keyed by an integer and by a pointer to an interface.
//
//   Vek::Dir ""                         root directory
//     devices  (Vek::Dir)
//       dev1   (Sample::Device)         hostname "dev1.lab"
//         chassis (Sample::Chassis)     serial "SN123", uptime 3600.5 s
//         interfaces["eth0"]            mtu 9000, status up, counters 100/200/1,
//                                       vlans [10, 20, 30], peer -> eth1,
//                                       addresses 10.0.0.1 -> /24 static,
//                                                 192.168.1.1 -> /16 dhcp,
//                                       config {"speed":"10G"}
//         interfaces["eth1"]            defaults (mtu 1500, status down),
//                                       peer -> eth0
//         uplink -> eth0
//         vlanNames                     10 -> "mgmt", 20 -> "data" (integer key)
//         linkCosts                     eth0 -> 10, eth1 -> 20 (pointer key)
#pragma once

#include <cstdint>
#include <string>

#include <Vek/Vek.h>

namespace OstrelTest::Sample {

// The sample's types, built once per process.
struct Types {
  Vek::VekType operStatus;   // enumeration over int: up 1, down 2, testing 3
  Vek::VekType counters;     // value: inPkts, outPkts (constructor params), inErrors
  Vek::VekType ipv4;         // value with its own text form: bits (unsigned int)
  Vek::VekType addressInfo;  // value: prefixLength (unsigned char), origin (string)
  Vek::VekType interface;    // entity
  Vek::VekType chassis;      // entity
  Vek::VekType device;       // entity
};
const Types& types();

// The populated tree above. Holding `root` keeps everything alive.
struct Tree {
  Vek::Ptr<Vek::Dir> root;
  Vek::Ptr<Vek::Dir> devices;
  Vek::Ptr<Vek::Entity> device;
  Vek::Ptr<Vek::Entity> eth0;
  Vek::Ptr<Vek::Entity> eth1;
};
Tree buildTree();

// A new Sample::Ipv4 value from dotted text ("10.0.0.1").
Vek::Ptr<Vek::GenericIf> ipv4(const char* dotted);
// A new Sample::Interfaces key.
Vek::Ptr<Vek::GenericIf> name(const char* text);

}  // namespace OstrelTest::Sample
