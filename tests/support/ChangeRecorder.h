// A notifiee for tests that records every callback of one entity as text:
// "attr" for an attribute, "attr[key]+" / "attr[key]-" for a collection
// member inserted or changed / erased (as seen during the callback), "zero"
// for `onZeroReferences`. Events go to its own list and, with a label, to a
// shared log as "label:event", so the order across entities can be checked.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Vek/Vek.h>

namespace OstrelTest {

class ChangeRecorder : public Vek::GenericIf::NotifieeConst {
 public:
  explicit ChangeRecorder(const Vek::Entity* entity, bool weak = true,
                          std::vector<std::string>* log = nullptr, std::string label = {})
      : log_(log), label_(std::move(label)) {
    notifierIs(entity);
    isRegisteredNotifieeIs(true);
    isWeakReferenceIs(weak);
  }

  void onAttribute(Vek::AttributeId id, const void* key) override {
    const auto* e = static_cast<const Vek::Entity*>(notifier()->genericIfPtr());
    const Vek::VekAttr attr = e->type()->attr(id);
    std::string text = attr->name();
    if (key) {
      lastKey = keyPointerToGif(attr, key);
      text += "[" + lastKey->strRep() + "]";
      // The change is visible when the callback runs.
      text += attr.genericIfExist(e, lastKey) ? "+" : "-";
    }
    record(text);
    if (onChange) onChange();
  }
  void onZeroReferences() override {
    record("zero");
    if (onZero) onZero();
  }

  std::vector<std::string> events;
  Vek::Ptr<Vek::GenericIf const> lastKey;
  std::function<void()> onChange;
  std::function<void()> onZero;

 private:
  void record(const std::string& text) {
    events.push_back(text);
    if (log_) log_->push_back(label_ + ":" + text);
  }

  std::vector<std::string>* log_;
  std::string label_;
};

}  // namespace OstrelTest
