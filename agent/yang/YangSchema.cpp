#include "YangSchema.h"

#include <filesystem>
#include <map>
#include <optional>

#include <fmt/format.h>
#include <libyang/libyang.h>

namespace VekGnmi::Yang {

namespace {

thread_local LibyangErrors* currentErrors = nullptr;

// One line: newlines of a message become spaces.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

void collect(LY_LOG_LEVEL level, const char* msg, const char* path) {
  if (!currentErrors || level != LY_LLERR || !msg) return;
  std::string text = msg;
  if (path && *path) text += fmt::format(" ({})", path);
  currentErrors->add(oneLine(std::move(text)));
}

void installLogCallback() {
  static const bool installed = [] {
    ly_log_options(LY_LOLOG | LY_LOSTORE_LAST);
    ly_set_log_clb(collect, 1);
    return true;
  }();
  (void)installed;
}

struct ModuleArg {
  std::string name;
  std::string revision;  // empty: the newest
};

std::optional<ModuleArg> parseModuleArg(const std::string& text) {
  const size_t at = text.find('@');
  ModuleArg arg{text.substr(0, at), at == std::string::npos ? std::string() : text.substr(at + 1)};
  if (arg.name.empty() || (at != std::string::npos && arg.revision.empty())) return std::nullopt;
  return arg;
}

// MODULE:F1,F2 into MODULE -> {F1, F2}.
Ostrel::Result<std::map<std::string, std::vector<std::string>>, std::string> parseFeatures(
    const std::vector<std::string>& args) {
  std::map<std::string, std::vector<std::string>> out;
  for (const std::string& arg : args) {
    const size_t colon = arg.find(':');
    if (colon == std::string::npos || colon == 0) {
      return Ostrel::Failure{fmt::format("feature list \"{}\" is not MODULE:F1,F2", arg)};
    }
    std::vector<std::string>& list = out[arg.substr(0, colon)];
    for (size_t start = colon + 1; start < arg.size();) {
      const size_t comma = std::min(arg.find(',', start), arg.size());
      if (comma > start) list.push_back(arg.substr(start, comma - start));
      start = comma + 1;
    }
  }
  return out;
}

}  // namespace

LibyangErrors::LibyangErrors() : outer_(currentErrors) {
  installLogCallback();
  currentErrors = this;
}

LibyangErrors::~LibyangErrors() { currentErrors = outer_; }

std::string LibyangErrors::text(const std::string& fallback) const {
  if (messages_.empty()) return fallback;
  std::string out;
  for (const std::string& m : messages_) {
    if (out.find(m) != std::string::npos) continue;  // libyang repeats itself now and then
    if (!out.empty()) out += "; ";
    out += m;
  }
  return out;
}

YangSchema::~YangSchema() {
  if (ctx_) ly_ctx_destroy(ctx_);
}

Ostrel::Result<std::shared_ptr<YangSchema>, std::string> YangSchema::load(const Options& options) {
  LibyangErrors errors;
  auto features = parseFeatures(options.features);
  if (!features) return Ostrel::Failure{features.error()};
  std::vector<ModuleArg> modules;
  for (const std::string& text : options.modules) {
    std::optional<ModuleArg> arg = parseModuleArg(text);
    if (!arg) return Ostrel::Failure{fmt::format("module \"{}\" is not NAME or NAME@REVISION", text)};
    modules.push_back(*arg);
  }
  for (const std::string& dir : options.searchDirs) {
    std::error_code ec;
    if (!std::filesystem::is_directory(dir, ec)) {
      return Ostrel::Failure{fmt::format("YANG search folder {} is not a folder", dir)};
    }
  }

  std::shared_ptr<YangSchema> schema(new YangSchema());
  const uint32_t ctxOptions = LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIR_CWD | LY_CTX_ENABLE_IMP_FEATURES;
  if (ly_ctx_new(nullptr, ctxOptions, &schema->ctx_) != LY_SUCCESS) {
    return Ostrel::Failure{errors.text("cannot make a libyang context")};
  }
  for (const std::string& dir : options.searchDirs) {
    if (ly_ctx_set_searchdir(schema->ctx_, dir.c_str()) != LY_SUCCESS) {
      return Ostrel::Failure{errors.text(fmt::format("cannot search {} for YANG modules", dir))};
    }
  }
  const char* allFeatures[] = {"*", nullptr};
  for (const ModuleArg& arg : modules) {
    std::vector<const char*> list;
    const auto narrowed = features.value().find(arg.name);
    if (narrowed != features.value().end()) {
      for (const std::string& f : narrowed->second) list.push_back(f.c_str());
      list.push_back(nullptr);
    }
    const lys_module* module = ly_ctx_load_module(schema->ctx_, arg.name.c_str(),
                                                  arg.revision.empty() ? nullptr : arg.revision.c_str(),
                                                  narrowed != features.value().end() ? list.data() : allFeatures);
    if (!module) {
      const std::string what = arg.revision.empty() ? arg.name : arg.name + "@" + arg.revision;
      return Ostrel::Failure{
          fmt::format("cannot load YANG module {}: {}", what, errors.text("not found in the search folders"))};
    }
    schema->named_.push_back(module);
  }
  for (const auto& [name, list] : features.value()) {
    bool named = false;
    for (const ModuleArg& arg : modules) named = named || arg.name == name;
    if (!named) return Ostrel::Failure{fmt::format("features given for {}, which is not loaded by name", name)};
  }
  return schema;
}

std::vector<const lys_module*> YangSchema::implemented() const {
  std::vector<const lys_module*> out;
  // libyang's own modules come first; one of them (ietf-yang-schema-mount)
  // is implemented and has data, which is not the device's.
  uint32_t index = ly_ctx_internal_modules_count(ctx_);
  while (const lys_module* module = ly_ctx_get_module_iter(ctx_, &index)) {
    if (module->implemented && module->compiled) out.push_back(module);
  }
  return out;
}

}  // namespace VekGnmi::Yang
