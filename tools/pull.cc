#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <kwtsdk/files.h>

#include "tools/conversion_folder.h"
#include "tools/harvest.h"
#include "tools/pipe.h"
#include "tools/pull_failure.h"

namespace kwtsdk::tool {
namespace {

namespace fs = std::filesystem;
using session::Effect;
using session::RecordingInfo;

struct PullRequest {
  std::string file;    // "": named by `naming`, in the folder
  std::string folder;  // "": the current one
  Naming naming;
  Form form;
  bool keep;
};

/// There it would be taken for one of the recorder's recordings, and be deleted with them.
void refuseStore(const std::string& file, const std::string& store) {
  const auto folder = fs::absolute(file).parent_path();
  std::error_code ignored;
  if (!fs::equivalent(folder, store, ignored)) return;
  throw Failure(ToolError::fileUnusable,
                "Cannot write " + file + ": it would be in the simulated recorder's folder.",
                "Name a file elsewhere with -o.");
}

void checkTarget(const std::string& file, const Environment& environment) {
  refuseStore(file, environment.simulatedFolder);
  checkOutput(file);
  checkOutput(partOf(file));
}

void reportDeletion(const Delivered& delivered, bool keep, Output& output) {
  if (keep) return output.line("The recorder keeps its copy.");
  if (delivered.saved.deleted != Effect::done) throw notDeletedFailure(delivered);
  output.line("The recorder has deleted its copy.");
}

void pull(const Environment& environment, const PullRequest& request, Output& output) {
  std::string file = request.file;
  if (!file.empty()) checkTarget(file, environment);
  const auto recorder = openRecorder(environment);
  std::optional<RecordingInfo> expected;
  if (file.empty()) {
    expected = firstRecording(environment, *recorder);
    file = fs::path(request.folder) / request.naming.nameOf(*expected);
    checkTarget(file, environment);
  }
  output.set("file", file);
  const Delivery delivery{environment, *recorder, request.form, request.keep};
  const Delivered delivered = delivery.run(file, expected);
  for (const auto& [key, value] : recordOf(delivered)) output.set(key, value);
  output.line(textOf(delivered));
  reportDeletion(delivered, request.keep, output);
  checkConverted(delivered);
  delivery.sweep(fs::path(file).parent_path());
}

void reportHarvest(const Harvested& harvested, const HarvestRequest& request, Output& output) {
  std::vector<Record> saved, left;
  std::uint64_t bytes = 0;
  std::string ids;
  for (const Delivered& one : harvested.delivered) {
    saved.push_back(recordOf(one));
    bytes += one.saved.recording.bytes;
  }
  for (const RecordingInfo& one : harvested.left) {
    left.push_back({{"id", std::uint64_t{one.id}}, {"bytes", one.bytes}});
    ids += (ids.empty() ? "" : ", ") + std::to_string(one.id);
  }
  output.setList("saved", saved);
  output.setList("left", left);
  output.set("bytes", bytes);
  if (saved.empty() && left.empty() && !harvested.failure)
    return output.line("The recorder holds no recordings.");
  const bool isDeleted = std::ranges::all_of(
      harvested.delivered, [](const Delivered& one) { return one.saved.deleted == Effect::done; });
  const std::string of = left.empty() ? "" : " of " + std::to_string(saved.size() + left.size());
  output.line("Pulled " + std::to_string(saved.size()) + of +
              (saved.size() == 1 && of.empty() ? " recording" : " recordings") + " (" + bytesText(bytes) +
              ") into " + (request.folder.empty() ? "the current folder" : request.folder.string()) +
              (isDeleted && !saved.empty() ? "; the recorder has deleted its copies." : "."));
  if (request.keep && !harvested.failure)
    output.line("The recorder keeps its copy, and gives out no other recording before that one is deleted.");
  if (!left.empty()) output.line("Left on the recorder, and not saved: " + ids + ".");
}

void pullAll(const Environment& environment, HarvestRequest request, const std::string& named,
             Output& output) {
  request.folder = harvestFolder(environment, named);
  output.set("folder", request.folder.empty() ? "." : request.folder.string());
  const auto recorder = openRecorder(environment);
  const Harvested harvested =
      harvest(environment, *recorder, request, [&](const Delivered& one) { output.line(textOf(one)); });
  reportHarvest(harvested, request, output);
  if (harvested.failure) throw Failure(*harvested.failure);
  for (const Delivered& one : harvested.delivered) checkConverted(one);
}

/// Of a file that exists nobody could say before the download whether it is this recording, converted.
void refuseExisting(const PullRequest& request) {
  if (request.form == Form::opus || request.file.empty() || !fileIsExist(request.file)) return;
  const bool isBegun = fileIsExist(ConversionFolder::sourceOf(request.file)) ||
                       fileIsExist(fs::path(request.file).replace_extension(".opus"));
  if (isBegun) return;
  throw Failure(ToolError::fileUnusable, "Cannot write " + request.file + ": it exists already.",
                "Name another file, or none, with -o.");
}

Action preparePull(const Arguments& arguments) {
  const bool all = arguments.has("--all"), keep = arguments.has("--keep");
  const std::string& output = arguments.text("-o");
  require(!arguments.has("-o") || !output.empty(), "-o needs the name of a file or of a folder");
  if (output == "-") return preparePipe(arguments);
  std::error_code ignored;
  const bool isFolder = all || output.empty() || output.ends_with('/') || fs::is_directory(output, ignored);
  require(isFolder || !arguments.has("--name"),
          "-o names the file already: leave --name out, or name a folder");
  const Naming naming(arguments);
  if (all) {
    return [naming, keep, output](const Environment& environment, Output& out) {
      pullAll(environment, {{}, naming, keep}, output, out);
    };
  }
  const Form form = isFolder ? naming.form() : formOf(arguments, output);
  const PullRequest request{isFolder ? "" : output, isFolder ? output : "", naming, form, keep};
  return [request](const Environment& environment, Output& out) {
    refuseExisting(request);
    pull(environment, request, out);
  };
}

const RegisteredCommand kPullCommand(
    {.place = 4,
     .name = "pull",
     .description = "Save recordings; the recorder then deletes them",
     .parameters =
         {{"-o,--output", "FILE|DIR|-",
           "File to write, FILE.part until it is whole; a folder; or - for a pipe, which implies --keep "
           "(default: the current folder)"},
          {.name = "--all",
           .valueName = "",
           .description = "All recordings, into a folder; what is there and whole is not fetched again "
                          "(default: the first)",
           .kind = Parameter::Kind::flag},
          {.name = "--keep",
           .valueName = "",
           .description = "Leave it on the recorder, which then gives out only its first recording",
           .kind = Parameter::Kind::flag},
          {"--as", "opus|wav|mp3",
           "Convert it, before the recorder deletes it (default: by the extension, or opus)"},
          {"--name", "PATTERN",
           "Names in a folder: strftime's conversions of the creation time, and {id} (default: "
           "recording-{id}-%Y%m%d-%H%M%S)"}},
     .prepare = preparePull});

}  // namespace
}  // namespace kwtsdk::tool
