// A set of YANG modules and their instance data as the agent's model
// (vekgnmid --yang-dir DIR --module NAME [--data FILE.json]).
//
// The modules are compiled by libyang with their imports and augments
// (YangSchema), the runtime types built from them (YangModel, whose header
// documents the mapping and an example tree), the data parsed and validated
// by libyang and built into entities (YangData); the library publishes the
// tree at the YANG data paths like any other model. All of that happens in
// `makeYangSource`, before the agent starts, so that a module that does not
// compile or data that libyang refuses stops vekgnmid at start with
// libyang's message and the place at fault.
//
// Behind the ModelSource interface:
//   - Capabilities list every module of the libyang context (the named ones,
//     their imports and the modules augmenting them), each with its
//     organization and revision as the module states them;
//   - request paths may name elements with or without their module
//     ("ietf-interfaces:interfaces", "ietf-ip:ipv4") and give key values in
//     any form libyang reads (an identity with or without its module); they
//     are rewritten into the published names and canonical key values, so
//     that they match what the library publishes;
//   - `config false` nodes are state (Get's data types, and Set refuses
//     them);
//   - values go out by their YANG type (YangValue): JSON_IETF as RFC 7951,
//     JSON the same with 64-bit integers and decimal64 as numbers, PROTO with
//     decimal64 as double_val, empty as bool_val true, binary as bytes_val;
//   - the change simulator is YangChurn.
#pragma once

#include <memory>
#include <string>

#include <Ostrel/Result.h>

#include "ModelSource.h"
#include "YangSchema.h"

namespace VekGnmi::Server {

// Loads `modules` (search folders, names, feature lists) and, when
// `dataFile` is not empty, the RFC 7951 JSON instance data in it. Errors:
// one line, libyang's words and the place at fault.
Ostrel::Result<std::shared_ptr<ModelSource>, std::string> makeYangSource(const Yang::YangSchema::Options& modules,
                                                                         const std::string& dataFile);

}  // namespace VekGnmi::Server
