#include "GetRpc.h"

#include <fmt/format.h>

#include "BoundedText.h"
#include "GnmiPathText.h"
#include "PathResolver.h"
#include "ValueEncoding.h"

namespace VekGnmi::Server {

// One Get: one sync per requested path, answered with one notification per
// path when every sync has finished.
class GetOperation final : public SyncOwner {
 public:
  GetOperation(AgentContext& context, std::shared_ptr<GetCall> call, GetParams params)
      : context_(context), call_(std::move(call)), params_(std::move(params)) {
    const gnmi::Path& prefix = call_->request.prefix();
    stripPrefix_ = hasWildcard(prefix) ? 0 : prefix.elem_size();
    for (size_t i = 0; i < params_.paths.size(); ++i) {
      gnmi::Notification* n = call_->response.add_notification();
      if (stripPrefix_ > 0) *n->mutable_prefix() = prefix;
      n->mutable_prefix()->clear_origin();
      if (!params_.target.empty()) n->mutable_prefix()->set_target(params_.target);
      filters_.emplace_back(params_.paths[i]);
    }
  }
  ~GetOperation() override { context_.router.cancel(*this); }

  void start(std::vector<std::vector<PublishedEntity>> covers, std::function<void()> done) {
    done_ = std::move(done);
    for (size_t i = 0; i < covers.size(); ++i) {
      pathOf_[context_.router.startSync(*this, std::move(covers[i]), SyncKind::Get).value()] = i;
    }
  }

  bool onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) override {
    auto it = pathOf_.find(syncId.value());
    if (it == pathOf_.end() || !message->response->has_update()) return true;
    const size_t index = it->second;
    const gnmi::Notification& in = message->response->update();
    const PathFilter& filter = filters_[index];
    const PathFilter::PrefixMatch match = filter.matchPrefix(in.prefix());
    if (match == PathFilter::PrefixMatch::None) return true;
    gnmi::Notification& out = *call_->response.mutable_notification(static_cast<int>(index));
    for (const gnmi::Update& u : in.update()) {
      if (match == PathFilter::PrefixMatch::Partial && !filter.matchUpdate(in.prefix(), u.path())) continue;
      const LeafInfo* leaf = context_.schema.leafOf(in.prefix(), u.path());
      if (!passesDataType(params_.type, leaf)) continue;
      gnmi::Update* copy = out.add_update();
      fullPath(in.prefix(), u.path(), *copy->mutable_path());
      context_.source.encode(leaf, u.val(), params_.encoding, *copy->mutable_val());
    }
    out.set_timestamp(std::max(out.timestamp(), in.timestamp()));
    return true;
  }

  void onSyncDone(Ostrel::SyncId syncId) override {
    if (pathOf_.erase(syncId.value()) == 0 || !pathOf_.empty()) return;
    const int64_t now = context_.clock().utcNanos();
    for (gnmi::Notification& n : *call_->response.mutable_notification()) {
      if (n.timestamp() == 0) n.set_timestamp(now);
    }
    done_();
  }

  const std::shared_ptr<GetCall>& call() const { return call_; }

 private:
  // The update's path relative to the request's prefix (or from the root
  // when the prefix has wildcards).
  void fullPath(const gnmi::Path& prefix, const gnmi::Path& path, gnmi::Path& out) const {
    int skip = stripPrefix_;
    for (const gnmi::PathElem& e : prefix.elem()) {
      if (skip > 0) {
        --skip;
        continue;
      }
      *out.add_elem() = e;
    }
    for (const gnmi::PathElem& e : path.elem()) {
      if (skip > 0) {
        --skip;
        continue;
      }
      *out.add_elem() = e;
    }
  }

  AgentContext& context_;
  std::shared_ptr<GetCall> call_;
  GetParams params_;
  int stripPrefix_ = 0;
  std::vector<PathFilter> filters_;
  std::unordered_map<uint64_t, size_t> pathOf_;
  std::function<void()> done_;
};

GetRpc::GetRpc(AgentContext context) : context_(context) {}

GetRpc::~GetRpc() = default;

void GetRpc::handle(std::shared_ptr<GetCall> call) {
  GetParams params;
  grpc::Status status = parseGet(call->request, params);
  if (!status.ok()) return call->finish(status);
  std::vector<std::vector<PublishedEntity>> covers;
  for (gnmi::Path& path : params.paths) {
    status = context_.source.normalizePath(path);
    if (!status.ok()) return call->finish(status);
    Resolution r;
    status = resolvePath(context_.schema, path, r);
    if (!status.ok()) return call->finish(status);
    if (r.absent || r.cover.empty()) {
      return call->finish(
          {grpc::StatusCode::NOT_FOUND, fmt::format("nothing exists at {}", boundedText(VekGnmi::pathString(path)))});
    }
    covers.push_back(std::move(r.cover));
  }
  auto op = std::make_unique<GetOperation>(context_, call, std::move(params));
  GetOperation* raw = op.get();
  gets_[call.get()] = std::move(op);
  raw->start(std::move(covers), [this, raw] {
    const std::shared_ptr<GetCall> finished = raw->call();
    gets_.erase(finished.get());
    finished->finish(grpc::Status::OK);
  });
}

void GetRpc::cancel(const std::shared_ptr<GetCall>& call) {
  auto it = gets_.find(call.get());
  if (it == gets_.end()) return;
  std::unique_ptr<GetOperation> op = std::move(it->second);
  gets_.erase(it);
  op.reset();  // cancels its syncs
  call->finish({grpc::StatusCode::CANCELLED, "the Get was cancelled"});
}

void GetRpc::stop(const grpc::Status& status) {
  auto gets = std::move(gets_);
  gets_.clear();
  for (auto& [key, get] : gets) get->call()->finish(status);
}

}  // namespace VekGnmi::Server
