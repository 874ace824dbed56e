// The sample model shared by the tests and benchmarks: one device that holds
// every kind of type and attribute the runtime offers and the library must
// publish, stream and set.
//
// The tree `buildTree()` returns (names in the runtime's path text):
//
//   ""  (Vek::Dir, unnamed root)
//   ├── devices  (Vek::Dir)
//   │   ├── dev1  (Sample::Device)
//   │   │     hostname "dev1.lab"
//   │   │     chassis            owned child: serial "SN123", uptime 3600.5 s, temperature 41.5
//   │   │     fan                owned child, unset (create and clear it in tests)
//   │   │     scalars            owned child (Sample::Scalars): one attribute of every
//   │   │                        builtin code and every enumeration, none at its default
//   │   │     interfaces["eth0"] (Sample::Interface, keyed by text, key attribute "name")
//   │   │         mtu 9000, status up, description "uplink", enabled true,
//   │   │         counters 100/200/1         (value; constructor params inPkts, outPkts)
//   │   │         stats {pkts 5/6/0, drops 2} (value nested in a value)
//   │   │         peer -> eth1               (pointer)
//   │   │         addresses 10.0.0.1 -> /24 static, 192.168.1.1 -> /16 dhcp
//   │   │                                    (keyed by a value with its own text form)
//   │   │         vlans [10, 20, 30]          (array of builtins)
//   │   │         statusHistory [down, up]    (array of enumerations)
//   │   │         config {"speed":"10G"}      (JSON text)
//   │   │     interfaces["eth1"] defaults (mtu 1500, status down), peer -> eth0
//   │   │     uplink -> eth0                 (pointer)
//   │   │     vlanNames   10 -> "mgmt", 20 -> "data"       (integer key)
//   │   │     linkCosts   eth0 -> 10, eth1 -> 20           (pointer key)
//   │   │     vlanRoles   VlanId 10 -> "management"        (wrapper key)
//   │   │     vlanPriorities VlanTag 20 -> 5               (key: an alias of the wrapper)
//   │   │     nativeVlan  VlanTag 1                        (alias scalar)
//   │   │     neighbors[{ifName eth0, index 1}]            (composite key; Sample::Neighbor)
//   │   │         remoteId "spine1", via -> eth0
//   │   │     lagMembers  1 -> eth0, 2 -> eth1             (collection of pointers)
//   │   │     routes      10.1.0.0 -> {10.1.0.0, metric 10}
//   │   │                 (internally keyed: members carry their key attribute)
//   │   │     dnsServers  [10.0.0.53, 10.0.0.54]            (array of own-text values)
//   │   └── primary  (Vek::Dir::Entry) -> dev1
//   └── journals  (Vek::Dir)
//       └── syslog  (Sample::Journal): entries 1 -> "boot", 2 -> "link up"
//                   (a stack collection: publishing it is refused)
#pragma once

#include <cstdint>
#include <string>

#include <Vek/Vek.h>

namespace OstrelTest::Sample {

// The sample's types, built once per process (module "Sample").
struct Types {
  Vek::VekType operStatus;   // enumeration over int: up 1, down 2, testing 3
  Vek::VekType counters;     // value: inPkts, outPkts (constructor params), inErrors
  Vek::VekType ipv4;         // value with its own text form: bits (unsigned int)
  Vek::VekType addressInfo;  // value: prefixLength (unsigned char, default 32), origin (default "static")
  Vek::VekType interface;    // entity
  Vek::VekType chassis;      // entity
  Vek::VekType device;       // entity
  // Enumerations over each integer builtin, values unlike their positions:
  Vek::VekType enumU8;   // unsigned char: low 5, high 250
  Vek::VekType enumI8;   // signed char: neg -100, pos 100
  Vek::VekType enumU16;  // unsigned short: small 1000, large 60000
  Vek::VekType enumI16;  // short: neg -30000, pos 30000
  Vek::VekType enumU32;  // unsigned int: small 7, large 4000000000
  Vek::VekType enumI32;  // int: neg -2000000000, zero 0, pos 2000000000
  Vek::VekType scalars;      // entity: every builtin and enumeration
  Vek::VekType stats;        // value: pkts (Counters, nested), drops (unsigned int)
  Vek::VekType vlanId;       // value wrapping id (unsigned short), a wrapper key
  Vek::VekType vlanTag;      // alias of vlanId
  Vek::VekType neighborKey;  // value: ifName (string), index (unsigned int), a composite key
  Vek::VekType neighbor;     // entity: remoteId, via -> Interface
  Vek::VekType route;        // value: destination (Ipv4), metric (unsigned int)
  Vek::VekType fan;          // entity: rpm (unsigned int)
  Vek::VekType journal;      // entity: entries, a stack collection
};
const Types& types();

// The populated tree above. Holding `root` keeps everything alive.
struct Tree {
  Vek::Ptr<Vek::Dir> root;
  Vek::Ptr<Vek::Dir> devices;
  Vek::Ptr<Vek::Entity> device;
  Vek::Ptr<Vek::Entity> eth0;
  Vek::Ptr<Vek::Entity> eth1;
  Vek::Ptr<Vek::Entity> scalars;
  Vek::Ptr<Vek::Entity> neighbor;
  Vek::Ptr<Vek::Dir::Entry> primary;
  Vek::Ptr<Vek::Dir> journals;
  Vek::Ptr<Vek::Entity> journal;
};
Tree buildTree();

// A new Sample::Ipv4 value from dotted text ("10.0.0.1").
Vek::Ptr<Vek::GenericIf> ipv4(const char* dotted);
// A new Sample::Interfaces key.
Vek::Ptr<Vek::GenericIf> name(const char* text);
// A new Sample::VlanId.
Vek::Ptr<Vek::GenericIf> vlanId(unsigned short id);
// A new Sample::NeighborKey.
Vek::Ptr<Vek::GenericIf> neighborKey(const char* ifName, unsigned index);

}  // namespace OstrelTest::Sample
