// The change simulator of a YANG model, paced like the demo device's (see
// ChangeSimulator): the `config false` leaves of the data change one by one
// at their own times. Counters and gauges (integers whose type has no range
// of its own: yang:counter32, yang:counter64, yang:gauge64 and the like; an
// if-index or a prefix length has one) advance by a random step; one change
// in 20 flaps an enumeration (an operational status) between its first
// enumerator and another. Only leaves the data sets change (what is
// published stays the instance data), and a counter that passes its type's
// top starts again from 0. Entities that Set removes are
// dropped; entities made later are found by a new scan of the tree, made
// when a removed one is met and after every few thousand changes.
//
// Deterministic for a given seed and tree. Event-loop thread only.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include <Vek/Vek.h>

#include "ChangeSimulator.h"
#include "YangModel.h"

namespace VekGnmi::Server {

class YangChurn final : public ChangeSimulator {
 public:
  YangChurn(const Yang::YangModel& model, Vek::Ptr<Vek::Dir> root, double rate, uint64_t seed = 1,
            double maxLag = DEFAULT_MAX_LAG);

  uint64_t counterChanges() const { return counterChanges_; }
  uint64_t statusFlaps() const { return statusFlaps_; }
  // The state leaves found by the last scan.
  size_t counters() const { return counters_.size(); }
  size_t statuses() const { return statuses_.size(); }

 private:
  struct Instance {
    Vek::Ptr<Vek::Entity> entity;
    const Yang::YangLeaf* leaf;
  };

  bool canChange() const override { return !counters_.empty() || !statuses_.empty(); }
  void change() override;
  void scan();
  void scanEntity(const Vek::Ptr<Vek::Entity>& entity);
  // One change of the leaf; false when its entity has left the model.
  bool advanceCounter(const Instance& instance);
  bool flapStatus(const Instance& instance);

  const Yang::YangModel& model_;
  Vek::Ptr<Vek::Dir> root_;
  std::mt19937_64 random_;
  std::vector<Instance> counters_;
  std::vector<Instance> statuses_;
  uint64_t sinceScan_ = 0;
  uint64_t counterChanges_ = 0;
  uint64_t statusFlaps_ = 0;
};

}  // namespace VekGnmi::Server
