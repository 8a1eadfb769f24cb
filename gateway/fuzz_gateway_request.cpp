// Fuzz target: what the web front end reads from outside. The first byte
// picks the reader:
//   0: a set's JSON body, laid over a person's state and written as the
//      task's request document, which must name no reply queue of its own
//      and, from a valid change, carry only text the front end allows;
//   1: a person or group name from the path, checked and then written into
//      a request document;
//   2: a reply document of the task, read into the API's JSON.
// Nothing may crash; a refused input is a std::invalid_argument or nullopt.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "ooo_settings.h"
#include "reply_json.h"
#include "request_document.h"

namespace {

using Json = nlohmann::ordered_json;

const Json& currentState() {
  static const Json state{{"User", "Jane Doe/Acme"}, {"Subject", "Away"},        {"Message", "Back soon"},
                          {"OOOEnable", "0"},        {"ShowHours", "0"},         {"ASDEnable", "1"},
                          {"AppendSubject", "0"},    {"InternetAddress", "1"},   {"StartTimeYear", "2026"},
                          {"StartTimeMonth", "3"},   {"StartTimeDay", "2"},      {"StartTimeHour", "9"},
                          {"StartTimeMin", "30"},    {"StartTimeSec", "0"},      {"EndTimeYear", "2026"},
                          {"EndTimeMonth", "3"},     {"EndTimeDay", "9"},        {"EndTimeHour", "8"},
                          {"EndTimeMin", "0"},       {"EndTimeSec", "0"},        {"DaysOut", "template text"},
                          {"DaysOutValue", "5 days"}, {"AppendSubjectDate", "template"}};
  return state;
}

void readSetBody(const std::string& body) {
  const Json change = Json::parse(body, nullptr, false);
  if (change.is_discarded() || !change.is_object()) return;
  tarnwick::client::RequestValues values;
  try {
    values = tarnwick::gateway::set_values(currentState(), change);
  } catch (const std::invalid_argument&) {
    return;
  }
  if (values.subject && !tarnwick::gateway::is_valid_text(*values.subject, false)) std::abort();
  if (values.message && !tarnwick::gateway::is_valid_text(*values.message, true)) std::abort();
  values.reply_queue = "MQ$OOOServletList_1";
  const std::string document = tarnwick::client::request_document(values);
  // The front end's own reply queue, never one a value smuggled in.
  if (tarnwick::client::reply_queue_named_in(document) != values.reply_queue) std::abort();
}

void readName(const std::string& name) {
  if (!tarnwick::gateway::is_valid_name(name)) return;
  tarnwick::client::RequestValues values;
  values.user = name;
  values.reply_queue = "MQ$OOOServletList_2";
  if (tarnwick::client::reply_queue_named_in(tarnwick::client::request_document(values)) != values.reply_queue) {
    std::abort();
  }
}

void readReply(const std::string& document) {
  if (const auto users = tarnwick::gateway::reply_users(document)) {
    if (!users->is_array()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static tarnwick::gateway::XmlToolkit toolkit;
  if (size == 0) return 0;
  const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      readSetBody(input);
      break;
    case 1:
      readName(input);
      break;
    default:
      readReply(input);
      break;
  }
  return 0;
}
