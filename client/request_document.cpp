#include "request_document.h"

#include <cctype>
#include <cstdio>

#include "protocol/ProtocolNames.h"

namespace tarnwick::client {
namespace {

// Escaped for an attribute value in double quotes or for element text; line
// breaks and tabs as character references, so that attribute value
// normalisation keeps them.
std::string escaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      case '\t': out += "&#9;"; break;
      default: out += c;
    }
  }
  return out;
}

void attribute(std::string& out, std::string_view name, std::string_view value) {
  out += ' ';
  out += name;
  out += "=\"";
  out += escaped(value);
  out += '"';
}

void optional_attribute(std::string& out, std::string_view name, const std::optional<std::string>& value) {
  if (value) attribute(out, name, *value);
}

void time_attributes(std::string& out, std::string_view prefix, const std::optional<LocalDateTime>& time) {
  if (!time) return;
  const std::pair<const char*, int> parts[] = {{"Year", time->year},   {"Month", time->month},
                                               {"Day", time->day},     {"Hour", time->hour},
                                               {"Min", time->minute},  {"Sec", time->second}};
  for (const auto& [part, value] : parts) attribute(out, std::string(prefix) + part, std::to_string(value));
}

bool starts_with_no_case(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

bool is_name_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.' || c == ':' ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The five predefined entities and character references, decoded (UTF-8).
std::string unescaped(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '&') {
      out += text[i];
      continue;
    }
    const size_t end = text.find(';', i);
    if (end == std::string_view::npos) {
      out += text.substr(i);
      break;
    }
    const std::string_view entity = text.substr(i + 1, end - i - 1);
    if (entity == "amp") out += '&';
    else if (entity == "lt") out += '<';
    else if (entity == "gt") out += '>';
    else if (entity == "quot") out += '"';
    else if (entity == "apos") out += '\'';
    else if (!entity.empty() && entity[0] == '#') {
      unsigned long code = 0;
      bool hex = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X');
      for (char c : entity.substr(hex ? 2 : 1)) {
        const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                          : hex && std::isxdigit(static_cast<unsigned char>(c))
                              ? std::tolower(static_cast<unsigned char>(c)) - 'a' + 10
                              : -1;
        if (digit < 0 || code > 0x10FFFF) {
          code = 0xFFFD;
          break;
        }
        code = code * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
      }
      if (code > 0x10FFFF || code == 0) code = 0xFFFD;
      if (code < 0x80) {
        out += static_cast<char>(code);
      } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
      } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
      } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
      }
    } else {
      out += text.substr(i, end - i + 1);
    }
    i = end;
  }
  return out;
}

}  // namespace

std::string_view action_of(RequestKind kind) {
  switch (kind) {
    case RequestKind::query: return protocol::kActionQuery;
    case RequestKind::set: return protocol::kActionSet;
    case RequestKind::status: return protocol::kActionStatus;
    default: return "";
  }
}

std::string_view file_marker_of(RequestKind kind) {
  switch (kind) {
    case RequestKind::page: return protocol::kMarkerWeb;
    case RequestKind::mobile_page: return protocol::kMarkerMobile;
    case RequestKind::install_ios_page: return protocol::kMarkerInstallIOS;
    default: return "";
  }
}

std::string request_document(const RequestValues& values) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<OOORequest><Username";
  optional_attribute(out, "Message", values.message);
  attribute(out, "MQName", values.reply_queue);
  optional_attribute(out, "OOOEnable", values.enable);
  optional_attribute(out, "MailServer", values.mail_server);
  optional_attribute(out, "MailBox", values.mail_box);
  optional_attribute(out, "Subject", values.subject);
  time_attributes(out, "StartTime", values.leave);
  time_attributes(out, "EndTime", values.back);
  optional_attribute(out, "ShowHours", values.show_hours);
  if (!values.action.empty()) attribute(out, "Action", values.action);
  optional_attribute(out, "DaysOut", values.days_out);
  optional_attribute(out, "AppendSubjectDate", values.append_subject_date);
  optional_attribute(out, "AppendSubject", values.append_subject);
  optional_attribute(out, "ASDEnable", values.asd_enable);
  optional_attribute(out, "IsIphone", values.is_iphone);
  optional_attribute(out, "IsAndroid", values.is_android);
  optional_attribute(out, "InternetAddress", values.exclude_internet);
  optional_attribute(out, "LoginName", values.login_name);
  optional_attribute(out, "LoginServer", values.login_server);
  optional_attribute(out, "QueryUser", values.query_user);
  out += '>';
  out += escaped(values.user);
  out += "</Username></OOORequest>\n";
  return out;
}

std::optional<std::string> reply_queue_named_in(std::string_view document) {
  std::optional<std::string> found;
  size_t pos = 0;
  while ((pos = document.find('<', pos)) != std::string_view::npos) {
    const std::string_view rest = document.substr(pos);
    if (rest.starts_with("<!--")) {
      const size_t end = document.find("-->", pos + 4);
      if (end == std::string_view::npos) break;
      pos = end + 3;
      continue;
    }
    if (rest.starts_with("<![CDATA[")) {
      const size_t end = document.find("]]>", pos + 9);
      if (end == std::string_view::npos) break;
      pos = end + 3;
      continue;
    }
    ++pos;
    if (rest.size() < 2 || !is_name_char(rest[1])) continue;  // "</", "<?", "<!"
    size_t name_end = pos;
    while (name_end < document.size() && is_name_char(document[name_end])) ++name_end;
    const bool is_user = starts_with_no_case(document.substr(pos, name_end - pos), "Username");
    // Attributes up to the end of the tag.
    size_t at = name_end;
    while (at < document.size()) {
      while (at < document.size() && is_space(document[at])) ++at;
      if (at >= document.size() || document[at] == '>' || document[at] == '/') break;
      const size_t attribute_start = at;
      while (at < document.size() && is_name_char(document[at])) ++at;
      if (at == attribute_start) break;  // not well-formed: stop reading this tag
      const std::string_view name = document.substr(attribute_start, at - attribute_start);
      while (at < document.size() && is_space(document[at])) ++at;
      if (at >= document.size() || document[at] != '=') break;
      ++at;
      while (at < document.size() && is_space(document[at])) ++at;
      if (at >= document.size() || (document[at] != '"' && document[at] != '\'')) break;
      const char quote = document[at++];
      const size_t value_end = document.find(quote, at);
      if (value_end == std::string_view::npos) return found;
      if (is_user && starts_with_no_case(name, "MQName")) found = unescaped(document.substr(at, value_end - at));
      at = value_end + 1;
    }
    pos = at;
  }
  return found;
}

}  // namespace tarnwick::client
