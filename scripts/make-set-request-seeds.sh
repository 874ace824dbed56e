#!/usr/bin/env bash
# Writes the seed corpus of fuzz/SetRequestFuzz: Set requests against the
# sample model (tests/support/SampleModel.h), given here in protobuf text form
# and encoded with protoc. Usage: make-set-request-seeds.sh [BUILD_DIR]
# (the build directory holds the staged gnmi.proto; default build/).
set -euo pipefail
cd "$(dirname "$0")/.."
stage=${1:-build}/proto/stage
out=fuzz/corpus/SetRequestFuzz
mkdir -p "$out"

eth0='prefix { elem { name: "devices" } elem { name: "dev1" } elem { name: "interfaces" key { key: "name" value: "eth0" } } }'
dev1='prefix { elem { name: "devices" } elem { name: "dev1" } }'

seed() {  # seed NAME TEXT
  printf '%s\n' "$2" | protoc --proto_path="$stage" --encode=gnmi.SetRequest gnmi/gnmi.proto >"$out/$1"
}

seed update-mtu "$eth0 update { path { elem { name: \"mtu\" } } val { uint_val: 1500 } }"
seed replace-then-update-counters "$eth0
  replace { path { elem { name: \"counters\" } elem { name: \"inPkts\" } } val { uint_val: 7 } }
  update { path { elem { name: \"counters\" } elem { name: \"outPkts\" } } val { uint_val: 9 } }"
seed replace-nested-stats "$eth0
  replace { path { elem { name: \"stats\" } elem { name: \"pkts\" } elem { name: \"inPkts\" } } val { uint_val: 1 } }
  update { path { elem { name: \"stats\" } elem { name: \"drops\" } } val { uint_val: 2 } }"
seed scalars-every-kind 'prefix { elem { name: "devices" } elem { name: "dev1" } elem { name: "scalars" } }
  update { path { elem { name: "u8" } } val { uint_val: 300 } }
  update { path { elem { name: "i8" } } val { int_val: 300 } }
  update { path { elem { name: "i64" } } val { int_val: -5 } }
  update { path { elem { name: "flag" } } val { bool_val: true } }
  update { path { elem { name: "label" } } val { string_val: "x" } }
  update { path { elem { name: "ratio" } } val { double_val: 0.5 } }'
seed wrapper-and-alias-keys "$dev1
  update { path { elem { name: \"vlanRoles\" key { key: \"id\" value: \"10\" } } } val { string_val: \"ops\" } }
  update { path { elem { name: \"vlanPriorities\" key { key: \"id\" value: \"20\" } } } val { uint_val: 3 } }
  update { path { elem { name: \"nativeVlan\" } elem { name: \"id\" } } val { uint_val: 4 } }"
seed members-and-arrays "$eth0
  update { path { elem { name: \"addresses\" key { key: \"ip\" value: \"10.0.0.1\" } } elem { name: \"prefixLength\" } } val { uint_val: 20 } }
  update { path { elem { name: \"vlans\" key { key: \"index\" value: \"1\" } } } val { uint_val: 25 } }"
seed refused-keys "$dev1
  update { path { elem { name: \"routes\" key { key: \"destination\" value: \"10.1.0.0\" } } elem { name: \"metric\" } } val { uint_val: 1 } }
  update { path { elem { name: \"neighbors\" key { key: \"ifName\" value: \"eth0\" } key { key: \"index\" value: \"1\" } } } val { uint_val: 1 } }"
seed commit-refusal "$eth0
  update { path { elem { name: \"description\" } } val { string_val: \"core\" } }
  update { path { elem { name: \"mtu\" } } val { uint_val: 10 } }"
seed deletes-only "$eth0 delete { elem { name: \"mtu\" } }"
seed empty-prefix 'update { path { elem { name: "mtu" } } val { uint_val: 1 } }'
seed directory-entry 'prefix { elem { name: "devices" } elem { name: "primary" } elem { name: "entity" } }
  update { path { elem { name: "hostname" } } val { string_val: "h" } }'
seed journal-stack 'prefix { elem { name: "journals" } elem { name: "syslog" } }
  update { path { elem { name: "entries" key { key: "id" value: "1" } } } val { string_val: "x" } }'
