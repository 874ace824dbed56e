// AgentClientBench: vekgnmid as its clients see it. Each case starts a real
// vekgnmid process on loopback (port 0; the port is read from its first line
// on stdout), drives it from gRPC clients in this process, takes the agent's
// CPU time from /proc/<pid>/stat (utime + stime) before and after, and its
// peak resident memory from /proc/<pid>/status (VmHWM); the agent is stopped
// with SIGINT at the end of every case.
//
// A plain program rather than Google Benchmark: every case is a separate
// process to start, measure from outside and stop, with several clients,
// percentiles and several figures per run, which Google Benchmark's
// one-timed-loop model does not fit.
//
// Cases (see --help for their sizes):
//   sync     Subscribe ONCE at / in PROTO, from the request to the
//            sync_response, at each --interfaces size: leaves/s, agent CPU
//            per leaf, agent peak RSS; beside it AgentPrebuiltServer, which
//            streams the very same responses pre-built (the two take turns
//            sync by sync), and the agent's rate as a share of it.
//   fair     the time to answer a Get of one interface while N whole-tree
//            ONCE syncs (each restarted when it ends, each client on its own
//            connection reading as fast as it can) are in progress, with
//            shared walks and with --no-shared-walks.
//   shared   agent CPU of M identical STREAM subscribers to / up to their
//            sync_responses against that of one, with and without shared
//            walks.
//   latency  with --churn, ON_CHANGE subscribers: receive time minus the
//            notification's timestamp (same host, same clock).
//
// Client and agent share the machine's cores: the client's own CPU is
// reported beside the agent's, and so is the time each side's threads spent
// waiting for a CPU, which on a shared machine moves wall-clock rates more
// than anything measured here.
#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <condition_variable>
#include <cstring>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

// g++ 12 sees a null dereference inside CLI11's string splitting, once inlined.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnull-dereference"
#include <CLI/CLI.hpp>
#pragma GCC diagnostic pop

#include "AgentBenchClient.h"

namespace {

using namespace AgentBench;

// ---------------------------------------------------------------------------
// The server under measurement: a child process.

// The whole of a (small) file, such as one under /proc.
std::string readFile(const std::string& path) {
  std::string text;
  FILE* f = std::fopen(path.c_str(), "r");
  if (f == nullptr) throw std::runtime_error("cannot read " + path);
  char buffer[4096];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  std::fclose(f);
  return text;
}

// Seconds the threads of process `pid` have spent runnable but waiting for a
// CPU (the second field of each /proc/<pid>/task/<tid>/schedstat): on this
// shared machine, the part of a case's time that other processes took.
double runQueueWaitSeconds(const std::string& pid) {
  const std::string tasks = fmt::format("/proc/{}/task", pid);
  DIR* dir = opendir(tasks.c_str());
  if (dir == nullptr) return 0;
  double total = 0;
  while (const dirent* e = readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    try {
      std::istringstream fields(readFile(fmt::format("{}/{}/schedstat", tasks, e->d_name)));
      unsigned long long running = 0;
      unsigned long long waiting = 0;
      if (fields >> running >> waiting) total += static_cast<double>(waiting) * 1e-9;
    } catch (const std::exception&) {
      // The thread ended meanwhile.
    }
  }
  closedir(dir);
  return total;
}

class Child {
 public:
  // Starts `program` with `args`; its stdout is a pipe whose first line must
  // name "(port N)". Its stderr is ours.
  Child(const std::string& program, const std::vector<std::string>& args) {
    int out[2];
    if (pipe(out) != 0) throw std::runtime_error("pipe failed");
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
      // Ends with the benchmark, however the benchmark ends.
      prctl(PR_SET_PDEATHSIG, SIGINT);
      if (getppid() != parent) _exit(127);
      dup2(out[1], STDOUT_FILENO);
      close(out[0]);
      close(out[1]);
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(program.c_str()));
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(program.c_str(), argv.data());
      std::fprintf(stderr, "cannot run %s: %s\n", program.c_str(), std::strerror(errno));
      _exit(127);
    }
    close(out[1]);
    out_ = fdopen(out[0], "r");
    char line[1024];
    if (out_ == nullptr || std::fgets(line, sizeof line, out_) == nullptr) {
      stop();
      throw std::runtime_error(fmt::format("{} printed nothing", program));
    }
    firstLine_ = line;
    const size_t at = firstLine_.find("(port ");
    if (at != std::string::npos) port_ = std::atoi(firstLine_.c_str() + at + 6);
    if (port_ <= 0) {
      stop();
      throw std::runtime_error(fmt::format("no port in {}'s first line: {}", program, firstLine_));
    }
  }
  ~Child() { stop(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  int port() const { return port_; }
  const std::string& firstLine() const { return firstLine_; }

  // CPU seconds the process has used (all its threads, user and system).
  double cpuSeconds() const {
    const std::string text = readFile(fmt::format("/proc/{}/stat", pid_));
    const size_t close = text.rfind(')');
    if (close == std::string::npos) throw std::runtime_error("cannot read the child's /proc stat");
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    // Fields from the third (state) on; utime and stime are the 14th and 15th.
    for (int n = 3; n <= 15 && fields >> field; ++n) {
      if (n == 14) utime = std::stoull(field);
      if (n == 15) stime = std::stoull(field);
    }
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
  }
  double runQueueWait() const { return runQueueWaitSeconds(std::to_string(pid_)); }
  // A line of /proc/<pid>/status in MiB ("VmHWM", "VmRSS").
  double statusMiB(const std::string& name) const {
    std::istringstream in(readFile(fmt::format("/proc/{}/status", pid_)));
    std::string line;
    while (std::getline(in, line)) {
      if (line.rfind(name + ":", 0) == 0) return std::stod(line.substr(name.size() + 1)) / 1024.0;
    }
    throw std::runtime_error(fmt::format("no {} in the child's status", name));
  }

  // SIGINT, then waits (SIGKILL after 60 s). Idempotent.
  void stop() {
    if (pid_ > 0) {
      kill(pid_, SIGINT);
      int status = 0;
      const auto deadline = Clock::now() + std::chrono::seconds(60);
      while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
          std::fprintf(stderr, "the child did not stop in 60 s: killed\n");
          kill(pid_, SIGKILL);
          waitpid(pid_, &status, 0);
          break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      pid_ = -1;
    }
    if (out_ != nullptr) {
      std::fclose(out_);
      out_ = nullptr;
    }
  }

 private:
  pid_t pid_ = -1;
  FILE* out_ = nullptr;
  int port_ = 0;
  std::string firstLine_;
};

double ownCpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

// ---------------------------------------------------------------------------
// Ranges over runs.

class Summary {
 public:
  void add(const std::string& row, const std::string& column, double value) {
    auto& values = rows_[row][column];
    values.push_back(value);
    if (std::find(order_.begin(), order_.end(), row) == order_.end()) order_.push_back(row);
  }
  void print() const {
    std::cout << "\n== ranges over runs (min-max) ==\n";
    for (const std::string& row : order_) {
      std::cout << row << ":";
      for (const auto& [column, values] : rows_.at(row)) {
        const auto [lo, hi] = std::minmax_element(values.begin(), values.end());
        std::cout << fmt::format("  {} {}", column, range(*lo, *hi));
      }
      std::cout << '\n';
    }
  }

 private:
  static std::string number(double v) {
    if (v != 0 && std::abs(v) < 0.01) return fmt::format("{:.2g}", v);
    if (std::abs(v) < 10) return fmt::format("{:.3g}", v);
    return fmt::format("{:.0f}", v);
  }
  static std::string range(double lo, double hi) {
    return lo == hi ? number(lo) : number(lo) + "-" + number(hi);
  }
  std::map<std::string, std::map<std::string, std::vector<double>>> rows_;
  std::vector<std::string> order_;
};

struct Settings {
  std::string agent;
  std::string prebuilt;
  std::vector<std::string> agentArgs;
  std::vector<std::string> prebuiltArgs;
  std::vector<std::string> clientArgs;
  int runs = 3;
  // sync
  std::vector<size_t> syncInterfaces{1000, 10000};
  size_t leavesPerMeasure = 1000000;
  bool prebuiltToo = true;
  bool agentToo = true;
  // fair
  size_t fairInterfaces = 10000;
  std::vector<size_t> fairSyncs{0, 10, 50};
  size_t gets = 100;
  double getGapMs = 20;
  std::string getPath = "/devices/dev1/interfaces[name=eth5]";
  // shared
  size_t sharedInterfaces = 10000;
  size_t subscribers = 100;
  // latency
  size_t latencyInterfaces = 1000;
  double churn = 10000;
  double latencySeconds = 5;
  std::vector<std::string> latencyPaths{"/devices/dev1/interfaces[name=*]/counters",
                                        "/devices/dev1/interfaces[name=*]"};
  // both sharing modes, or one
  std::vector<std::string> sharing{"shared", "private"};
};

Summary summary;

std::vector<std::string> agentArgs(const Settings& s, size_t interfaces, const std::vector<std::string>& more = {}) {
  std::vector<std::string> args{"--address", "127.0.0.1:0", "--interfaces", std::to_string(interfaces)};
  args.insert(args.end(), s.agentArgs.begin(), s.agentArgs.end());
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

std::vector<std::string> sharingArgs(const std::string& sharing) {
  if (sharing == "private") return {"--no-shared-walks"};
  return {};
}

gnmi::GetRequest getRequest(const std::string& path) {
  gnmi::GetRequest r;
  *r.add_path() = parsePath(path);
  r.set_encoding(gnmi::PROTO);
  return r;
}

// Waits until the agent answers (its model is built: a Get runs on the
// event loop after the build).
void awaitReady(int port) {
  auto stub = gnmi::gNMI::NewStub(openChannel(port));
  grpc::ClientContext context;
  context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(300));
  gnmi::GetResponse response;
  const grpc::Status status = stub->Get(&context, getRequest("/devices/dev1/system"), &response);
  if (!status.ok()) throw std::runtime_error("the agent did not answer: " + status.error_message());
}

double percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  const size_t i = std::min(v.size() - 1, static_cast<size_t>(p / 100.0 * static_cast<double>(v.size())));
  return v[i];
}

// ---------------------------------------------------------------------------
// sync: one client, ONCE syncs of / one after another, taking turns
// between the agent and the pre-built server (both running), so that both
// see the same load of the shared machine.

// One server measured by the sync case, and what its syncs added up to.
struct SyncSide {
  SyncSide(std::unique_ptr<Child> c, const Settings& s)
      : child(std::move(c)), stub(gnmi::gNMI::NewStub(openChannel(child->port(), s.clientArgs))) {}

  // One sync, added to the sums (the first is reported on its own).
  void sync(const gnmi::SubscribeRequest& request) {
    const double cpu0 = child->cpuSeconds();
    const double wait0 = child->runQueueWait();
    const double own0 = ownCpuSeconds();
    const double ownWait0 = runQueueWaitSeconds("self");
    const SyncResult r = syncOnce(*stub, request);
    const double cpuUsed = child->cpuSeconds() - cpu0;
    if (!first) {
      first = r;
      firstCpu = cpuUsed;
      return;
    }
    cpu += cpuUsed;
    wait += child->runQueueWait() - wait0;
    own += ownCpuSeconds() - own0;
    ownWait += runQueueWaitSeconds("self") - ownWait0;
    seconds += r.seconds;
    leaves += r.leaves;
    messages += r.messages;
    ++count;
  }
  double leavesPerSecond() const { return static_cast<double>(leaves) / seconds; }

  // What it did, printed and added to the summary.
  void report(const std::string& label, const std::string& row) const {
    const double n = static_cast<double>(leaves);
    const double peak = child->statusMiB("VmHWM");
    const double after = child->statusMiB("VmRSS");
    std::cout << fmt::format(
                     "{}: first sync {:.3f} s ({} leaves, {} messages, {:.0f} ns/leaf); then {} syncs, {} leaves in "
                     "{:.2f} s: {:.3f} M leaves/s, {:.1f} k messages/s; server CPU {:.0f} ns/leaf ({:.2f} cores), "
                     "client CPU {:.0f} ns/leaf ({:.2f} cores); waiting for a CPU: server threads {:.2f} s, client "
                     "threads {:.2f} s; server RSS before the syncs {:.0f} MiB, after {:.0f} MiB, peak {:.0f} MiB",
                     label, first->seconds, first->leaves, first->messages,
                     firstCpu / static_cast<double>(first->leaves) * 1e9, count, leaves, seconds,
                     leavesPerSecond() / 1e6, static_cast<double>(messages) / seconds / 1e3, cpu / n * 1e9,
                     cpu / seconds, own / n * 1e9, own / seconds, wait, ownWait, readyMiB, after, peak)
              << std::endl;
    summary.add(row, "first_s", first->seconds);
    summary.add(row, "first_ns/leaf", firstCpu / static_cast<double>(first->leaves) * 1e9);
    summary.add(row, "Mleaves/s", leavesPerSecond() / 1e6);
    summary.add(row, "kmsg/s", static_cast<double>(messages) / seconds / 1e3);
    summary.add(row, "server_ns/leaf", cpu / n * 1e9);
    summary.add(row, "server_cores", cpu / seconds);
    summary.add(row, "client_ns/leaf", own / n * 1e9);
    summary.add(row, "peak_MiB", peak);
    summary.add(row, "after_MiB", after);
    summary.add(row, "server_cpu_wait/wall", wait / seconds);
    summary.add(row, "client_cpu_wait/wall", ownWait / seconds);
  }

  std::unique_ptr<Child> child;
  std::unique_ptr<gnmi::gNMI::Stub> stub;
  double readyMiB = 0;  // resident before the first sync
  std::optional<SyncResult> first;
  double firstCpu = 0;
  double cpu = 0, wait = 0, own = 0, ownWait = 0, seconds = 0;
  size_t leaves = 0, messages = 0, count = 0;
};

void caseSync(const Settings& s) {
  const gnmi::SubscribeRequest request = subscribeRequest({"/"}, gnmi::SubscriptionList::ONCE);
  for (int run = 1; run <= s.runs; ++run) {
    for (size_t interfaces : s.syncInterfaces) {
      std::vector<std::pair<std::string, SyncSide>> sides;
      if (s.agentToo) {
        auto child = std::make_unique<Child>(s.agent, agentArgs(s, interfaces));
        awaitReady(child->port());
        sides.emplace_back("agent", SyncSide(std::move(child), s));
      }
      if (s.prebuiltToo) {
        std::vector<std::string> args{"--interfaces", std::to_string(interfaces)};
        args.insert(args.end(), s.prebuiltArgs.begin(), s.prebuiltArgs.end());
        sides.emplace_back("prebuilt", SyncSide(std::make_unique<Child>(s.prebuilt, args), s));
      }
      for (auto& [name, side] : sides) {
        side.readyMiB = side.child->statusMiB("VmRSS");
        side.sync(request);
      }
      const size_t leavesPerSync = sides.front().second.first->leaves;
      const size_t rounds = std::max<size_t>(1, (s.leavesPerMeasure + leavesPerSync - 1) / leavesPerSync);
      for (size_t i = 0; i < rounds; ++i) {
        for (auto& [name, side] : sides) side.sync(request);
      }
      for (auto& [name, side] : sides) {
        side.report(fmt::format("sync {} {} interfaces, run {}", name, interfaces, run),
                    fmt::format("sync {} {}", name, interfaces));
      }
      if (sides.size() < 2) continue;
      const SyncSide& agent = sides[0].second;
      const SyncSide& prebuilt = sides[1].second;
      const double ratio = agent.leavesPerSecond() / prebuilt.leavesPerSecond();
      const double cpuRatio =
          (prebuilt.cpu / static_cast<double>(prebuilt.leaves)) / (agent.cpu / static_cast<double>(agent.leaves));
      std::cout << fmt::format("sync {} interfaces, run {}: the agent at {:.2f} of the pre-built rate; pre-built "
                               "CPU per leaf / the agent's {:.2f}",
                               interfaces, run, ratio, cpuRatio)
                << std::endl;
      summary.add(fmt::format("sync agent/prebuilt {}", interfaces), "rate_ratio", ratio);
      summary.add(fmt::format("sync agent/prebuilt {}", interfaces), "cpu_per_leaf_ratio", cpuRatio);
    }
  }
}

// ---------------------------------------------------------------------------
// Clients that keep whole-tree syncs in progress.

class BackgroundSyncs {
 public:
  // `count` clients, each on its own connection; each subscribes with
  // `request` and reads as fast as it can; a ONCE subscription is started
  // again when it ends, until `stop`.
  BackgroundSyncs(int port, size_t count, const gnmi::SubscribeRequest& request,
                  const std::vector<std::string>& clientArgs)
      : request_(request) {
    for (size_t i = 0; i < count; ++i) {
      stubs_.push_back(gnmi::gNMI::NewStub(openChannel(port, clientArgs)));
    }
    contexts_.resize(count);
    for (size_t i = 0; i < count; ++i) threads_.emplace_back([this, i] { run(i); });
  }
  ~BackgroundSyncs() { stop(); }

  // Waits until every client has received a message.
  void awaitStarted() const {
    while (started_.load() < threads_.size()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  size_t leaves() const { return leaves_.load(); }
  size_t syncsDone() const { return syncsDone_.load(); }

  void stop() {
    stopping_ = true;
    {
      std::lock_guard lock(mutex_);
      for (grpc::ClientContext* c : contexts_) {
        if (c != nullptr) c->TryCancel();
      }
    }
    for (std::thread& t : threads_) t.join();
    threads_.clear();
  }

 private:
  void run(size_t i) {
    bool first = true;
    while (!stopping_) {
      grpc::ClientContext context;
      {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        contexts_[i] = &context;
      }
      auto stream = stubs_[i]->Subscribe(&context);
      stream->Write(request_);
      gnmi::SubscribeResponse r;
      while (stream->Read(&r)) {
        if (first) {
          first = false;
          ++started_;
        }
        leaves_ += updatesIn(r);
        if (r.sync_response()) ++syncsDone_;
      }
      stream->Finish();
      std::lock_guard lock(mutex_);
      contexts_[i] = nullptr;
    }
  }

  const gnmi::SubscribeRequest request_;
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs_;
  std::mutex mutex_;
  std::vector<grpc::ClientContext*> contexts_;
  std::vector<std::thread> threads_;
  std::atomic<bool> stopping_{false};
  std::atomic<size_t> started_{0};
  std::atomic<size_t> leaves_{0};
  std::atomic<size_t> syncsDone_{0};
};

void caseFair(const Settings& s) {
  const gnmi::GetRequest get = getRequest(s.getPath);
  for (int run = 1; run <= s.runs; ++run) {
    for (const std::string& sharing : s.sharing) {
      for (size_t syncs : s.fairSyncs) {
        Child child(s.agent, agentArgs(s, s.fairInterfaces, sharingArgs(sharing)));
        awaitReady(child.port());
        BackgroundSyncs background(child.port(), syncs, subscribeRequest({"/"}, gnmi::SubscriptionList::ONCE),
                                   s.clientArgs);
        background.awaitStarted();
        auto stub = gnmi::gNMI::NewStub(openChannel(child.port(), s.clientArgs));
        std::vector<double> ms;
        const double cpu0 = child.cpuSeconds();
        const size_t leaves0 = background.leaves();
        const auto start = Clock::now();
        for (size_t i = 0; i < s.gets; ++i) {
          grpc::ClientContext context;
          gnmi::GetResponse response;
          const auto sent = Clock::now();
          const grpc::Status status = stub->Get(&context, get, &response);
          if (!status.ok()) throw std::runtime_error("Get failed: " + status.error_message());
          ms.push_back(secondsSince(sent) * 1e3);
          std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(s.getGapMs));
        }
        const double seconds = secondsSince(start);
        const double cpu = child.cpuSeconds() - cpu0;
        const double leavesPerSecond = static_cast<double>(background.leaves() - leaves0) / seconds;
        const size_t syncsDone = background.syncsDone();
        background.stop();
        const std::string label = fmt::format("fair {} {} syncs", sharing, syncs);
        std::cout << fmt::format("{}, run {}: Get p50 {:.2f} ms, p90 {:.2f} ms, p99 {:.2f} ms, max {:.2f} ms over {} "
                                 "Gets; the syncs received {:.3f} M leaves/s ({} syncs completed); agent {:.2f} "
                                 "cores",
                                 label, run, percentile(ms, 50), percentile(ms, 90), percentile(ms, 99),
                                 percentile(ms, 100), ms.size(), leavesPerSecond / 1e6, syncsDone, cpu / seconds)
                  << std::endl;
        summary.add(label, "p50_ms", percentile(ms, 50));
        summary.add(label, "p90_ms", percentile(ms, 90));
        summary.add(label, "p99_ms", percentile(ms, 99));
        summary.add(label, "sync_Mleaves/s", leavesPerSecond / 1e6);
      }
    }
  }
}

// ---------------------------------------------------------------------------
// shared: M identical STREAM subscribers at once.

struct SubscribersFigures {
  double cpu = 0;      // agent CPU seconds up to the last sync_response
  double seconds = 0;  // wall time up to the last sync_response
  size_t leaves = 0;   // leaves all received
};

SubscribersFigures subscribeAll(const Settings& s, Child& child, size_t count) {
  const gnmi::SubscribeRequest request = subscribeRequest({"/"}, gnmi::SubscriptionList::STREAM);
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  for (size_t i = 0; i < count; ++i) {
    auto channel = openChannel(child.port(), s.clientArgs);
    if (!channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(10))) {
      throw std::runtime_error("a subscriber could not connect");
    }
    stubs.push_back(gnmi::gNMI::NewStub(channel));
  }
  std::mutex mutex;
  std::condition_variable changed;
  bool go = false;
  bool release = false;
  size_t synced = 0;
  std::atomic<size_t> leaves{0};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return go; });
      }
      grpc::ClientContext context;
      auto stream = stubs[i]->Subscribe(&context);
      stream->Write(request);
      gnmi::SubscribeResponse r;
      while (stream->Read(&r)) {
        leaves += updatesIn(r);
        if (r.sync_response()) break;
      }
      std::unique_lock lock(mutex);
      ++synced;
      changed.notify_all();
      // Held open until every subscriber has synced.
      changed.wait(lock, [&] { return release; });
      lock.unlock();
      context.TryCancel();
      stream->Finish();
    });
  }
  SubscribersFigures f;
  const double cpu0 = child.cpuSeconds();
  const auto start = Clock::now();
  {
    std::lock_guard lock(mutex);
    go = true;
  }
  changed.notify_all();
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return synced == count; });
    f.seconds = secondsSince(start);
    f.cpu = child.cpuSeconds() - cpu0;
    release = true;
  }
  changed.notify_all();
  for (std::thread& t : threads) t.join();
  f.leaves = leaves.load();
  return f;
}

void caseShared(const Settings& s) {
  for (int run = 1; run <= s.runs; ++run) {
    for (const std::string& sharing : s.sharing) {
      SubscribersFigures one;
      SubscribersFigures many;
      {
        Child child(s.agent, agentArgs(s, s.sharedInterfaces, sharingArgs(sharing)));
        awaitReady(child.port());
        one = subscribeAll(s, child, 1);
      }
      {
        Child child(s.agent, agentArgs(s, s.sharedInterfaces, sharingArgs(sharing)));
        awaitReady(child.port());
        many = subscribeAll(s, child, s.subscribers);
      }
      const std::string label = fmt::format("shared {} {} subscribers", sharing, s.subscribers);
      std::cout << fmt::format("{}, run {}: one subscriber {:.2f} s CPU ({:.2f} s, {} leaves); {} subscribers "
                               "{:.2f} s CPU ({:.2f} s, {} leaves in all): {:.2f}x the CPU of one",
                               label, run, one.cpu, one.seconds, one.leaves, s.subscribers, many.cpu, many.seconds,
                               many.leaves, many.cpu / one.cpu)
                << std::endl;
      summary.add(label, "one_cpu_s", one.cpu);
      summary.add(label, "many_cpu_s", many.cpu);
      summary.add(label, "many_wall_s", many.seconds);
      summary.add(label, "cpu_ratio", many.cpu / one.cpu);
    }
  }
}

// ---------------------------------------------------------------------------
// latency: ON_CHANGE under churn.

void caseLatency(const Settings& s) {
  for (int run = 1; run <= s.runs; ++run) {
    for (const std::string& path : s.latencyPaths) {
      Child child(s.agent, agentArgs(s, s.latencyInterfaces, {"--churn", fmt::format("{}", s.churn)}));
      awaitReady(child.port());
      auto stub = gnmi::gNMI::NewStub(openChannel(child.port(), s.clientArgs));
      grpc::ClientContext context;
      auto stream = stub->Subscribe(&context);
      stream->Write(subscribeRequest({path}, gnmi::SubscriptionList::STREAM, gnmi::ON_CHANGE));
      gnmi::SubscribeResponse r;
      bool synced = false;
      while (!synced && stream->Read(&r)) synced = r.sync_response();
      if (!synced) throw std::runtime_error("no sync_response");
      std::vector<double> us;
      us.reserve(static_cast<size_t>(s.churn * s.latencySeconds * 2));
      size_t updates = 0;
      const double cpu0 = child.cpuSeconds();
      const auto start = Clock::now();
      while (secondsSince(start) < s.latencySeconds && stream->Read(&r)) {
        const int64_t now = wallNanos();
        if (!r.has_update()) continue;
        us.push_back(static_cast<double>(now - r.update().timestamp()) / 1e3);
        updates += updatesIn(r) + static_cast<size_t>(r.update().delete__size());
      }
      const double seconds = secondsSince(start);
      const double cpu = child.cpuSeconds() - cpu0;
      context.TryCancel();
      while (stream->Read(&r)) {
      }
      stream->Finish();
      const std::string label = fmt::format("latency {}", path);
      std::cout << fmt::format("{}, run {}: {:.0f} notifications/s ({:.0f} updates/s); receive - timestamp p50 "
                               "{:.0f} us, p90 {:.0f} us, p99 {:.0f} us, max {:.0f} us; agent {:.2f} cores",
                               label, run, static_cast<double>(us.size()) / seconds,
                               static_cast<double>(updates) / seconds, percentile(us, 50), percentile(us, 90),
                               percentile(us, 99), percentile(us, 100), cpu / seconds)
                << std::endl;
      summary.add(label, "notifications/s", static_cast<double>(us.size()) / seconds);
      summary.add(label, "p50_us", percentile(us, 50));
      summary.add(label, "p90_us", percentile(us, 90));
      summary.add(label, "p99_us", percentile(us, 99));
      summary.add(label, "max_us", percentile(us, 100));
      summary.add(label, "agent_cores", cpu / seconds);
    }
  }
}

std::string besideThisProgram(const char* argv0, const std::string& relative) {
  std::string self(argv0);
  const size_t slash = self.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : self.substr(0, slash);
  return dir + "/" + relative;
}

}  // namespace

int main(int argc, char** argv) {
  Settings s;
  s.agent = besideThisProgram(argv[0], "../agent/vekgnmid");
  s.prebuilt = besideThisProgram(argv[0], "AgentPrebuiltServer");
  std::vector<std::string> cases;
  CLI::App app{"vekgnmid measured from its clients: a real agent process on loopback, clients in this process."};
  app.add_option("cases", cases, "sync, fair, shared, latency (default: all)")
      ->check(CLI::IsMember({"sync", "fair", "shared", "latency"}));
  app.add_option("--agent", s.agent, "the vekgnmid to measure")->capture_default_str();
  app.add_option("--prebuilt-server", s.prebuilt, "the AgentPrebuiltServer")->capture_default_str();
  app.add_option("--agent-arg", s.agentArgs, "one more argument for vekgnmid, written --agent-arg=ARG (repeatable)")->allow_extra_args(false);
  app.add_option("--prebuilt-arg", s.prebuiltArgs, "one more argument for AgentPrebuiltServer, written --prebuilt-arg=ARG (repeatable)")
      ->allow_extra_args(false);
  app.add_option("--client-arg", s.clientArgs, "a gRPC channel argument NAME=VALUE of every client (repeatable)")
      ->allow_extra_args(false);
  app.add_option("--runs", s.runs, "runs of each case")->capture_default_str();
  app.add_option("--sharing", s.sharing, "fair, shared: 'shared' (the agent's default), 'private' "
                                         "(--no-shared-walks), or both")
      ->check(CLI::IsMember({"shared", "private"}))
      ->delimiter(',');
  app.add_option("--interfaces", s.syncInterfaces, "sync: interface counts, e.g. 1000,10000,100000")
      ->delimiter(',')
      ->capture_default_str();
  app.add_option("--leaves", s.leavesPerMeasure,
                 "sync: after a first sync, as many syncs of each server (taking turns) as reach this many leaves")
      ->capture_default_str();
  app.add_flag("!--no-prebuilt", s.prebuiltToo, "sync: the agent only, not the pre-built server");
  app.add_flag("!--no-agent", s.agentToo, "sync: the pre-built server only, not the agent");
  app.add_option("--fair-interfaces", s.fairInterfaces, "fair: interfaces")->capture_default_str();
  app.add_option("--syncs", s.fairSyncs, "fair: numbers of whole-tree syncs in progress")
      ->delimiter(',')
      ->capture_default_str();
  app.add_option("--gets", s.gets, "fair: Gets measured")->capture_default_str();
  app.add_option("--get-gap", s.getGapMs, "fair: milliseconds between two Gets")->capture_default_str();
  app.add_option("--get-path", s.getPath, "fair: the Get's path")->capture_default_str();
  app.add_option("--shared-interfaces", s.sharedInterfaces, "shared: interfaces")->capture_default_str();
  app.add_option("--subscribers", s.subscribers, "shared: identical STREAM subscribers")->capture_default_str();
  app.add_option("--latency-interfaces", s.latencyInterfaces, "latency: interfaces")->capture_default_str();
  app.add_option("--churn", s.churn, "latency: changes per second")->capture_default_str();
  app.add_option("--duration", s.latencySeconds, "latency: seconds measured per subscriber")->capture_default_str();
  app.add_option("--latency-path", s.latencyPaths, "latency: ON_CHANGE paths, one subscriber each")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (cases.empty()) cases = {"sync", "fair", "shared", "latency"};

  // A client that went away must not end this program.
  signal(SIGPIPE, SIG_IGN);
  try {
    for (const std::string& c : cases) {
      if (c == "sync") caseSync(s);
      if (c == "fair") caseFair(s);
      if (c == "shared") caseShared(s);
      if (c == "latency") caseLatency(s);
    }
  } catch (const std::exception& e) {
    std::cerr << "AgentClientBench: " << e.what() << '\n';
    summary.print();
    return 1;
  }
  summary.print();
  return 0;
}
