// A person's out-of-office settings as the API takes them: the request
// values of a set request, named as the reply document names them
// ("OOOEnable", "Subject", "Message", "StartTimeYear" ... "EndTimeSec",
// "ShowHours", "AppendSubject", "InternetAddress", ...). A change is laid
// over the person's current state, so a client sends only what it changes.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "request_document.h"

namespace tarnwick::gateway {

// Limits of the values a client may send.
inline constexpr size_t kMaxSubjectBytes = 1024;
inline constexpr size_t kMaxMessageBytes = 16 * 1024;
inline constexpr size_t kMaxNameBytes = 256;

// A person or group name as a client may give it: 1 to kMaxNameBytes bytes
// of valid UTF-8 without control characters or the markup characters
// < > " & \ and without a "!!" (which would name another server).
bool is_valid_name(const std::string& name);

// Text a client may send: valid UTF-8, no control characters but line
// breaks and tabs (when multi-line) — also no NUL.
bool is_valid_text(const std::string& text, bool multi_line);

// Lays `change` (a JSON object from the client) over `current` (the
// person's state as the reply document gives it) and gives the values of
// the set request. Throws std::invalid_argument with a message for the
// client on an unknown field, a value of the wrong kind or range, or an
// incomplete date.
client::RequestValues set_values(const nlohmann::ordered_json& current, const nlohmann::ordered_json& change);

// One line about a state for the audit record: on/off, leave, return and
// subject.
std::string state_summary(const nlohmann::ordered_json& state);

}  // namespace tarnwick::gateway
