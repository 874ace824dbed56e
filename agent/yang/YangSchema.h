// Loading YANG modules: a libyang context that holds the compiled schema of
// the modules a device is described in, with their imports and augments.
//
//   YangSchema::Options options;
//   options.searchDirs = {"/usr/share/yuma/nmda-modules/ietf", "/usr/share/yuma/modules/ietf"};
//   options.modules = {"ietf-interfaces", "ietf-ip", "iana-if-type@2014-05-08"};
//   options.features = {"ietf-interfaces:if-mib"};   // narrows that module's features
//   auto schema = YangSchema::load(options);
//   if (!schema) fail(schema.error());               // one line, libyang's own words
//
// Modules are looked up in the search folders only (neither the current
// folder nor anything else): `NAME` takes the newest revision found in any of
// them, `NAME@REVISION` that revision. Imports are resolved the same way; a
// module that another loaded module augments or deviates becomes implemented
// as well. Every feature of every implemented module is enabled, as yanglint
// does, unless `features` narrows a module to a list (`MODULE:F1,F2`, or
// `MODULE:` for none): a module whose features are all off refuses data that
// uses them.
//
// Errors never escape as exceptions and never abort: every failure is an
// `Ostrel::Result` error of one line that carries libyang's messages.
//
// libyang's log goes through one process-wide callback installed here: it
// collects the messages of the calls made inside a `LibyangErrors` scope
// (per thread) and drops all others, so libyang never prints to stderr.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Ostrel/Result.h>

struct ly_ctx;
struct lys_module;

namespace VekGnmi::Yang {

class YangSchema {
 public:
  struct Options {
    std::vector<std::string> searchDirs;  // in lookup order
    std::vector<std::string> modules;     // NAME or NAME@REVISION
    std::vector<std::string> features;    // MODULE:F1,F2 narrows MODULE to those
  };

  // Compiles `options.modules` with their imports and augments. Errors: a
  // missing search folder, a malformed module or feature argument, a module
  // or revision not found, a module that does not compile, an unknown
  // feature (with libyang's message where libyang gave one).
  static Ostrel::Result<std::shared_ptr<YangSchema>, std::string> load(const Options& options);

  ~YangSchema();
  YangSchema(const YangSchema&) = delete;
  YangSchema& operator=(const YangSchema&) = delete;

  ly_ctx* context() const { return ctx_; }
  // The modules named in the options, in their order.
  const std::vector<const lys_module*>& named() const { return named_; }
  // Every implemented module of the context (the named ones, the modules
  // they augment, ...) but libyang's own, in the context's order: the
  // modules whose data nodes a model publishes.
  std::vector<const lys_module*> implemented() const;

 private:
  YangSchema() = default;
  ly_ctx* ctx_ = nullptr;
  std::vector<const lys_module*> named_;
};

// Collects libyang's error messages on this thread while alive (scopes
// nest; the innermost collects).
class LibyangErrors {
 public:
  LibyangErrors();
  ~LibyangErrors();
  LibyangErrors(const LibyangErrors&) = delete;
  LibyangErrors& operator=(const LibyangErrors&) = delete;

  // The messages so far, each with its location, joined by "; " on one line
  // ("Value "300" is out of type uint8 min/max bounds. (Data location
  // "/t:c/b", line number 1.)"); `fallback` when libyang said nothing.
  std::string text(const std::string& fallback) const;
  bool empty() const { return messages_.empty(); }
  void add(std::string message) { messages_.push_back(std::move(message)); }

 private:
  std::vector<std::string> messages_;
  LibyangErrors* outer_;
};

}  // namespace VekGnmi::Yang
