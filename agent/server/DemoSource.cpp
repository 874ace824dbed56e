// The demo device as a ModelSource: the tree of DemoModel.h, the library's
// values encoded by their runtime types (ValueEncoding.h).
#include <fmt/format.h>

#include "DemoModel.h"
#include "ModelSource.h"
#include "ValueEncoding.h"

namespace VekGnmi::Server {

ModelSource::~ModelSource() = default;

void ModelSource::build() {
  Built built = buildModel();
  root_ = std::move(built.root);
  schema_ = std::move(built.schema);
}

void ModelSource::teardown() {
  schema_.reset();
  root_ = nullptr;
  dropModel();
}

namespace {

class DemoSource final : public ModelSource {
 public:
  explicit DemoSource(size_t interfaces) : interfaces_(interfaces) {}

  std::string description() const override {
    return fmt::format("a demo device of {} interfaces", interfaces_);
  }
  std::vector<gnmi::ModelData> models() const override { return demoModelData(); }

  void encode(const LeafInfo* leaf, const gnmi::TypedValue& value, gnmi::Encoding encoding,
              gnmi::TypedValue& out) const override {
    encodeValue(leaf, value, encoding, out);
  }

  bool agentWritesLeaves() const override { return false; }

  grpc::Status setValue(const LeafInfo& leaf, const ClientValue& value, SetValue& out) const override {
    std::string error;
    const bool ok = value.json ? setValueForJson(leaf, *value.json, out.typed, error)
                               : setValueForLeaf(leaf, *value.typed, out.typed, error);
    return ok ? grpc::Status::OK : grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, error);
  }

  std::string memberElement(Vek::VekType type, const std::string& name) const override {
    const Vek::VekAttr attr = type->attr(name);
    return attr && !attr->type()->isCollectionControl() ? name : std::string();
  }

  bool clearable(const Vek::VekAttrBase& attr) const override { return !isStateAttribute(attr); }

  std::shared_ptr<void> writeAsDevice() const override { return std::make_shared<DeviceWrite>(); }

  std::unique_ptr<ChangeSimulator> changeSimulator(double rate, uint64_t seed) override {
    return std::make_unique<ChurnSimulator>(model_, rate, seed);
  }

  DemoModel* demoModel() override { return &model_; }

 protected:
  void dropModel() override { model_ = DemoModel(); }
  bool protoMayChange(const gnmi::TypedValue& value) const override { return protoMayConvert(value); }
  bool protoChanges(const LeafInfo* leaf, const gnmi::TypedValue&) const override { return protoConverts(leaf); }
  Built buildModel() override {
    model_ = buildDemoModel(interfaces_);
    return {model_.root, std::make_unique<ModelSchema>(model_.root, isStateAttribute)};
  }

 private:
  size_t interfaces_;
  DemoModel model_;
};

}  // namespace

std::shared_ptr<ModelSource> makeDemoSource(size_t interfaces) {
  return std::make_shared<DemoSource>(interfaces);
}

}  // namespace VekGnmi::Server
