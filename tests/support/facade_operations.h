#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/scarcity/scarcity.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::testing {

/// A completion of any kind. What it takes to tell error and value as text is the host's own.
struct AnyCompletion {
  template <class... Values>
  void operator()(const MaybeError& error, const Values&... values) const {
    const Counting spared(false);
    told(error, (std::string() + ... + shown(values)));
  }
  std::function<void(const MaybeError&, const std::string& value)> told;
};

struct CompletionForm {
  const char* name;
  std::function<void(KWTBluetoothHelper&, const AnyCompletion&, const std::string& file, std::int64_t number)>
      begin;
};

/// Each that a host calls alone; the steps of an update are not among them.
inline const std::vector<CompletionForm>& completionForms() {
  const auto noProgress = [](auto...) {};
  static const std::vector<CompletionForm> all{
      {"power", [](auto& helper, auto& end, auto&, auto) { helper.getPower(end); }},
      {"version", [](auto& helper, auto& end, auto&, auto) { helper.getFirmwareVersion(end); }},
      {"capacity", [](auto& helper, auto& end, auto&, auto) { helper.getCapacity(end); }},
      {"count", [](auto& helper, auto& end, auto&, auto) { helper.getFileNumAndFirstId(end); }},
      {"info", [](auto& helper, auto& end, auto&, auto id) { helper.getFileInfo(id, end); }},
      {"list", [](auto& helper, auto& end, auto&, auto) { helper.getFlashFileList(end); }},
      {"download", [=](auto& helper, auto& end, auto& file,
                       auto) { helper.downloadFirstFlashFile(file, noProgress, end); }},
      {"notice", [](auto& helper, auto& end, auto&, auto) { helper.notifyDownloadSuccess(end); }},
      {"deletion", [](auto& helper, auto& end, auto&, auto id) { helper.deleteFile(id, end); }},
      {"remove", [](auto& helper, auto& end, auto&, auto) { helper.deleteFirstFlashFile(end); }},
      {"record",
       [](auto& helper, auto& end, auto& file, auto type) { helper.startRecordWithType(type, file, end); }},
      {"stop", [](auto& helper, auto& end, auto&, auto) { helper.stopRecord(end); }},
      {"update",
       [=](auto& helper, auto& end, auto& file, auto) { helper.updateFirmware(file, noProgress, end); }},
  };
  return all;
}
inline const CompletionForm& completionForm(std::string_view name) {
  return *std::ranges::find(completionForms(), name, [](const auto& form) { return form.name; });
}

/// What it returns, as text.
struct BlockingForm {
  const char* name;
  Duration timeOut;
  std::function<std::string(KWTBluetoothHelper&)> call;
};

inline const std::vector<BlockingForm>& blockingForms() {
  static const std::vector<BlockingForm> all{
      {"blocking power", 5s, [](auto& helper) { return shown(helper.getPower()); }},
      {"blocking version", 5s, [](auto& helper) { return shown(helper.getFirmwareVersion()); }},
      {"blocking capacity", 5s, [](auto& helper) { return shown(helper.getCapacity()); }},
      {"blocking info", 5s, [](auto& helper) { return shown(helper.getFileInfo(10)); }},
      {"blocking notice", 2s, [](auto& helper) { return shown(helper.notifyDownloadSuccess()); }},
      {"blocking count", 5s, [](auto& helper) { return shown(helper.getFileNumAndFirstId()); }},
  };
  return all;
}

}  // namespace kwtsdk::testing
