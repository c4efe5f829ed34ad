#include "tools/output.h"

#include <iostream>

#include <nlohmann/json.hpp>

namespace kwtsdk::tool {

struct Output::Object {
  nlohmann::json fields = nlohmann::json::object();
};

namespace {

nlohmann::json jsonOf(const Value& value) {
  return std::visit([](const auto& content) { return nlohmann::json(content); }, value);
}

nlohmann::json jsonOf(const Record& record) {
  auto object = nlohmann::json::object();
  for (const auto& [key, value] : record) object[key] = jsonOf(value);
  return object;
}

}  // namespace

Output::Output(bool json) : json_(json), object_(std::make_unique<Object>()) {}
Output::~Output() = default;

void Output::line(const std::string& text) {
  // Flushed, so that it stands before what comes on standard error.
  if (!json_) std::cout << text << std::endl;
}

void Output::set(const std::string& key, const Value& value) { object_->fields[key] = jsonOf(value); }

void Output::setList(const std::string& key, const std::vector<Record>& records) {
  auto& list = object_->fields[key] = nlohmann::json::array();
  for (const Record& record : records) list.push_back(jsonOf(record));
}

void Output::fail(const Failure& failure) {
  failed_ = true;
  std::cerr << "kwt: " << failure.what() << '\n';
  if (!failure.hint().empty()) std::cerr << "kwt: " << failure.hint() << '\n';
  object_->fields["error"] = jsonOf(Record{{"domain", failure.domain()},
                                           {"code", failure.code()},
                                           {"text", std::string(failure.what())},
                                           {"hint", failure.hint()}});
}

int Output::finish() {
  constexpr int indent = 2;
  if (json_) {
    // File names need not be UTF-8, JSON has to be.
    const auto unknown = nlohmann::json::error_handler_t::replace;
    std::cout << object_->fields.dump(indent, ' ', false, unknown) << '\n';
  }
  if (!std::cout.flush()) {
    std::cerr << "kwt: The result could not be written to standard output.\n"
                 "kwt: Check where it is redirected to, and the free space there.\n";
    return 1;
  }
  return failed_ ? 1 : 0;
}

}  // namespace kwtsdk::tool
