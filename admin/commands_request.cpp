// request query|set|status|page|mobile-page|install-ios-page: sends a
// request to the running task as a front end would and prints the answer.
#include <iostream>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "directory.h"
#include "failure.h"
#include "handles.h"
#include "names.h"
#include "request.h"
#include "session.h"

namespace tarnwick::admin {

namespace {

struct RequestCommand {
  RequestOptions request;
  std::string leave, back;
  bool json = false;
  std::vector<CLI::Option*> value_options;  // excluded by --raw
  CLI::Option* raw = nullptr;
};

struct KindInfo {
  const char* name;
  RequestKind kind;
  const char* description;
};

constexpr KindInfo kKinds[] = {
    {"query", RequestKind::query, "read a user's out-of-office state (the reply document is written at the request path)"},
    {"set", RequestKind::set, "change a user's out-of-office state"},
    {"status", RequestKind::status, "ask whether users are out of the office, on behalf of --query-user"},
    {"page", RequestKind::page, "get the web page with the app links and the configure link"},
    {"mobile-page", RequestKind::mobile_page, "get the same page laid out for a phone"},
    {"install-ios-page", RequestKind::install_ios_page, "get the iOS installation instructions page"},
};

void add_request_options(CLI::App* command, const std::shared_ptr<RequestCommand>& state) {
  RequestValues& values = state->request.values;
  auto text = [&](const char* name, std::optional<std::string>& target, const char* help) {
    auto* option = command->add_option(name, [&target](const CLI::results_t& result) {
      target = result.empty() ? std::string() : result.front();
      return true;
    }, help);
    option->type_name("TEXT");
    state->value_options.push_back(option);
  };
  auto flag = [&](const char* name, std::optional<std::string>& target, const char* help) {
    auto* option = command->add_option(name, [&target](const CLI::results_t& result) {
      target = result.empty() || result.front().empty() ? std::string("1") : result.front();
      return target == "0" || target == "1";
    }, help);
    option->expected(0, 1)->type_name("[0|1]");
    state->value_options.push_back(option);
  };

  state->value_options.push_back(command->add_option("--user", values.user, "the user (the Username text)"));
  text("--mailserver", values.mail_server, "server of the user's mail file (default: from the directory)");
  text("--mailfile", values.mail_box, "path of the user's mail file (default: from the directory)");
  flag("--enable", values.enable, "switch out-of-office on (--enable=0: off)");
  text("--subject", values.subject, "the subject of the automatic replies");
  text("--message", values.message, "the body of the automatic replies");
  state->value_options.push_back(
      command->add_option("--leave", state->leave, "the first day out, local time: 2026-03-02T09:30[:SS]"));
  state->value_options.push_back(
      command->add_option("--return", state->back, "the first day back, local time: 2026-03-09T08:00[:SS]"));
  text("--show-hours", values.show_hours, "ShowHours value (service mode)");
  text("--days-out", values.days_out, "DaysOut text");
  flag("--append-subject", values.append_subject, "append the return date to the subject");
  text("--append-subject-date", values.append_subject_date, "AppendSubjectDate text");
  flag("--asd-enable", values.asd_enable, "ASDEnable flag");
  flag("--exclude-internet", values.exclude_internet, "do not reply to Internet mail (InternetAddress flag)");
  flag("--iphone", values.is_iphone, "the front end is an iPhone app (IsIphone flag)");
  flag("--android", values.is_android, "the front end is an Android app (IsAndroid flag)");
  text("--query-user", values.query_user, "who asks, for a status request");
  text("--login-name", values.login_name, "the name signed in at the front end");
  text("--login-server", values.login_server, "the server the front end signed in to");

  auto* raw = command->add_option("--raw", state->request.raw_file,
                                   "send this request document unchanged (its MQName names the reply queue)")
                  ->check(CLI::ExistingFile);
  state->raw = raw;
  command->add_option("--timeout", state->request.timeout_ms, "milliseconds to wait for the reply (default 30000)")
      ->check(CLI::Range(1LL, 24LL * 3600 * 1000));
  command->add_flag("--keep", state->request.keep_file, "keep the request file in the spool folder");
  command->add_flag("--json", state->json, "print {\"reply\", \"document\", \"elapsed_ms\"}");
}

LocalDateTime local_time_option(const std::string& option, const std::string& text) {
  const auto parsed = parse_local_date_time(text);
  if (!parsed) throw UsageError(option + " \"" + text + "\" is not a local time like 2026-03-02T09:30");
  return *parsed;
}

// A plain request about a user that leaves out the mail file gets it from
// the user's Person document, as a front end looks it up.
void fill_mail_file_from_directory(RequestValues& values) {
  if (values.user.empty() || (values.mail_server && values.mail_box)) return;
  const auto person = find_person(Database::open(kDirectoryFile), values.user);
  if (!person) return;
  if (!values.mail_server) values.mail_server = person->mail_server;
  if (!values.mail_box) values.mail_box = person->mail_file;
}

// A page request is made for someone signed in: without --login-name and
// --login-server, the user of --user signed in to this server.
void fill_login_of_page(RequestValues& values) {
  if (!values.login_name && !values.user.empty()) values.login_name = values.user;
  if (!values.login_server && !server_name().empty()) values.login_server = abbreviated_name(server_name());
}

// A status reply holds one User element per member: each on a line of its own.
std::string one_user_per_line(std::string document) {
  for (size_t at = document.find("<User"); at != std::string::npos; at = document.find("<User", at + 2)) {
    document.insert(at, "\n");
  }
  const size_t end = document.rfind("</OOOReadObject>");
  if (end != std::string::npos) document.insert(end, "\n");
  return document;
}

void print(const RequestOutcome& outcome, RequestKind kind, bool json) {
  if (json) {
    nlohmann::ordered_json out;
    out["reply"] = outcome.reply ? nlohmann::ordered_json(*outcome.reply) : nlohmann::ordered_json(nullptr);
    out["document"] = outcome.document;
    out["elapsed_ms"] = outcome.elapsed_ms;
    std::cout << out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
    return;
  }
  if (!outcome.reply) {
    std::cout << "Sent " << outcome.path << "; the document names no reply queue (MQName), so no reply comes.\n";
    return;
  }
  std::cout << "Reply (" << outcome.elapsed_ms << " ms): " << *outcome.reply << "\n";
  const std::string document = kind == RequestKind::status ? one_user_per_line(outcome.document) : outcome.document;
  std::cout << "File at " << outcome.path << ":\n" << document;
  if (!document.empty() && document.back() != '\n') std::cout << "\n";
}

}  // namespace

void add_request_commands(Cli& cli) {
  auto* request = cli.app.add_subcommand("request", "send a request to the running task as a front end would");
  request->require_subcommand(1);
  request->footer(
      "The request document is written into the data directory's spool folder and its path put on "
      "MQ$OutOfOffice; the reply queue's name is borrowed from MQ$OOOServletList. Without a reply in time the "
      "tool says \"no reply within N ms\" and exits 1.");
  for (const KindInfo& info : kKinds) {
    auto state = std::make_shared<RequestCommand>();
    state->request.kind = info.kind;
    auto* command = request->add_subcommand(info.name, info.description);
    add_request_options(command, state);
    cli.on_data(command, [state] {
      RequestOptions options = state->request;
      if (state->raw->count() > 0) {
        for (CLI::Option* option : state->value_options) {
          if (option->count() > 0) throw UsageError("--raw sends the document as it stands; " + option->get_name() + " cannot change it");
        }
      }
      if (!state->leave.empty()) options.values.leave = local_time_option("--leave", state->leave);
      if (!state->back.empty()) options.values.back = local_time_option("--return", state->back);
      // A status request names a person or a group and no mail file.
      if (options.raw_file.empty() && !action_of(options.kind).empty() && options.kind != RequestKind::status) {
        fill_mail_file_from_directory(options.values);
      }
      if (options.raw_file.empty() && action_of(options.kind).empty()) fill_login_of_page(options.values);
      print(send_request(options), options.kind, state->json);
    });
  }
}

}  // namespace tarnwick::admin
