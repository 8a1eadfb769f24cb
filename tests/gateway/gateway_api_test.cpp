// The front end's API against the real task and the real tarnwick-http on
// loopback: one server for the suite, persons made with tarnwick-admin,
// access granted through the mail file's and the application database's
// ACLs. Groups: sign-in, own state, other persons' state, group status,
// injection, oversized bodies, path traversal, pages and files; a task that
// is not running has a suite of its own.
#include <ctime>
#include <memory>

#include <gtest/gtest.h>

#include "gateway_harness.h"  // first: it settles the resolver's macros
#include "acl.h"
#include "nsfdb.h"
#include "osenv.h"
#include "osmem.h"

namespace tarnwick::gateway::testing {
namespace {

constexpr const char* kJane = "Jane Doe/Acme";       // agent mode
constexpr const char* kJohn = "John Smith/Acme";     // service mode
constexpr const char* kMaria = "Maria Garcia/Acme";  // Editor of Jane's mail file through a group
constexpr const char* kOlga = "Olga Petrova/Acme";   // [Admin] in OOO.nsf
constexpr const char* kWei = "Wei Chen/Acme";        // no rights over others
constexpr const char* kTess = "Tess Throttle/Acme";  // target of the sign-in slow-down

// The ACL of a database changed in this process through the runtime.
void change_acl(const std::string& path, bool create, const std::function<void(DHANDLE)>& change) {
  DBHANDLE db = NULLHANDLE;
  STATUS status = NSFDbOpen(path.c_str(), &db);
  if (status != NOERROR && create) {
    ASSERT_EQ(NSFDbCreate(path.c_str(), DBCLASS_NOTEFILE, FALSE), NOERROR);
    status = NSFDbOpen(path.c_str(), &db);
  }
  ASSERT_EQ(status, NOERROR) << path;
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
  change(acl);
  EXPECT_EQ(NSFDbStoreACL(db, acl, 0, ACL_STORE_UPDATE), NOERROR);
  OSMemFree(acl);
  NSFDbClose(db);
}

// The number of the role "[name]", made in a free slot when missing.
WORD role_number(DHANDLE acl, const std::string& name) {
  char text[ACL_PRIVSTRINGMAX] = {};
  for (WORD i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
    if (ACLGetPrivName(acl, i, text) == NOERROR && "[" + name + "]" == text) return i;
  }
  for (WORD i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
    if (ACLGetPrivName(acl, i, text) == NOERROR && text[0] == '\0') {
      EXPECT_EQ(ACLSetPrivName(acl, i, name.c_str()), NOERROR);
      return i;
    }
  }
  ADD_FAILURE() << "no free role";
  return 0;
}

// Local time parts of now + days, at hour:00.
Json time_parts(const char* prefix, int days, int hour) {
  const std::time_t when = std::time(nullptr) + days * 86400;
  std::tm local{};
  localtime_r(&when, &local);
  const std::string p = prefix;
  return Json{{p + "Year", local.tm_year + 1900}, {p + "Month", local.tm_mon + 1}, {p + "Day", local.tm_mday},
              {p + "Hour", hour},                 {p + "Min", 0},                  {p + "Sec", 0}};
}

Json away(int leave_in_days, int back_in_days) {
  Json body = {{"OOOEnable", "1"}};
  body.update(time_parts("StartTime", leave_in_days, 8));
  body.update(time_parts("EndTime", back_in_days, 9));
  return body;
}

class GatewayApi : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    server_ = std::make_unique<Server>("api");
    Server& s = *server_;
    s.admin({"init", s.data().string(), "--server", "Mail1/Acme"});
    s.add_person(kJane, "jdoe");
    s.add_person(kJohn, "jsmith", "service");
    s.add_person(kMaria, "mgarcia");
    s.add_person(kOlga, "opetrova");
    s.add_person(kWei, "wchen");
    s.add_person(kTess, "ttest");
    s.admin({"group", "add", "Assistants", "--members", kMaria});
    s.admin({"group", "add", "Sales", "--members", std::string(kJane) + "," + kJohn + ",Ghost Person/Acme"});
    s.admin({"env", "set", "OOOWorkers", "4"});
    ready_ = s.start_task();
    if (!ready_) return;

    // Access: Maria's group edits Jane's mail file; Olga holds [Admin].
    std::string ini = "=" + (s.data() / "notes.ini").string();
    char* argv[] = {const_cast<char*>("gateway_api_test"), ini.data(), nullptr};
    ready_ = NotesInitExtended(2, argv) == NOERROR;
    change_acl("mail/jdoe.nsf", false, [](DHANDLE acl) {
      EXPECT_EQ(ACLAddEntry(acl, "Assistants", ACL_LEVEL_EDITOR, nullptr, ACL_FLAG_GROUP), NOERROR);
    });
    change_acl("OOO.nsf", true, [](DHANDLE acl) {
      ACL_PRIVILEGES privileges{};
      ACLSetPriv(privileges, role_number(acl, "Admin"));
      EXPECT_EQ(ACLAddEntry(acl, "CN=Olga Petrova/O=Acme", ACL_LEVEL_READER, &privileges, ACL_FLAG_PERSON), NOERROR);
    });
    ready_ = ready_ && s.start_gateway({"--timeout", "20000"}) != 0;
  }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    ASSERT_TRUE(ready_) << server_->console("task.txt") << server_->console("gateway.txt");
  }

  static SignedIn sign_in(const std::string& name, const std::string& password = kPassword) {
    auto http = server_->client();
    const auto result = http.Post("/api/v1/session", Json{{"name", name}, {"password", password}}.dump(),
                                  "application/json");
    SignedIn session;
    if (!result || result->status != 200) return session;
    const std::string cookie = result->get_header_value("Set-Cookie");
    session.cookie = cookie.substr(0, cookie.find(';'));
    session.csrf = json_of(result)["csrf"];
    return session;
  }

  static httplib::Result put(const SignedIn& who, const std::string& user, const Json& body) {
    auto http = server_->client();
    return http.Put(("/api/v1/users/" + user + "/ooo").c_str(), who.headers(), body.dump(), "application/json");
  }
  static httplib::Result get(const SignedIn& who, const std::string& path) {
    auto http = server_->client();
    return http.Get(path.c_str(), who.headers(false));
  }

  static std::unique_ptr<Server> server_;
  static bool ready_;
};

std::unique_ptr<Server> GatewayApi::server_;
bool GatewayApi::ready_ = false;

TEST_F(GatewayApi, SignInWithThePasswordGivesAGuardedSessionCookie) {
  auto http = server_->client();
  const auto good = http.Post("/api/v1/session", Json{{"name", "jdoe"}, {"password", kPassword}}.dump(),
                              "application/json");
  ASSERT_TRUE(good);
  ASSERT_EQ(good->status, 200) << good->body;
  EXPECT_EQ(json_of(good)["user"], "CN=Jane Doe/O=Acme") << "the short name finds the person";
  const std::string cookie = good->get_header_value("Set-Cookie");
  EXPECT_NE(cookie.find("HttpOnly"), std::string::npos) << cookie;
  EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos) << cookie;
  EXPECT_EQ(cookie.find("Secure"), std::string::npos) << "plain HTTP on loopback";

  for (const auto& [name, password] : std::vector<std::pair<std::string, std::string>>{
           {"jdoe", "wrong"}, {"Nobody Here/Acme", kPassword}, {"jdoe", ""}, {"Sales", kPassword}}) {
    const auto bad = http.Post("/api/v1/session", Json{{"name", name}, {"password", password}}.dump(),
                               "application/json");
    ASSERT_TRUE(bad);
    EXPECT_TRUE(bad->status == 401 || bad->status == 400) << name << " " << bad->status;
    EXPECT_TRUE(bad->get_header_value("Set-Cookie").empty());
  }
  EXPECT_EQ(http.Get("/api/v1/session")->status, 401);
  EXPECT_EQ(http.Get("/api/v1/users/me/ooo")->status, 401) << "anonymous reads nothing";
  EXPECT_EQ(http.Get("/api/v1/status?name=Sales")->status, 401);

  // HTTP Basic for scripts.
  const auto by_basic = http.Get("/api/v1/session", {{"Authorization", basic("wchen", kPassword)}});
  EXPECT_EQ(by_basic->status, 200);
  EXPECT_EQ(json_of(by_basic)["user"], "CN=Wei Chen/O=Acme");
  const auto bad_basic = http.Get("/api/v1/session", {{"Authorization", basic("wchen", "nope")}});
  EXPECT_EQ(bad_basic->status, 401);
  EXPECT_FALSE(bad_basic->get_header_value("WWW-Authenticate").empty());

  // Signing out ends the session.
  const SignedIn session = sign_in(kWei);
  ASSERT_FALSE(session.cookie.empty());
  EXPECT_EQ(http.Delete("/api/v1/session", session.headers(false))->status, 403) << "sign-out needs the CSRF token";
  EXPECT_EQ(http.Delete("/api/v1/session", session.headers())->status, 204);
  EXPECT_EQ(http.Get("/api/v1/session", session.headers())->status, 401);
}

TEST_F(GatewayApi, RepeatedFailedSignInsAreSlowedDown) {
  auto http = server_->client();
  int slowed = 0;
  for (int i = 0; i < 8; ++i) {
    const auto bad = http.Post("/api/v1/session", Json{{"name", "ttest"}, {"password", "guess"}}.dump(),
                               "application/json");
    if (bad->status == 429) {
      ++slowed;
      EXPECT_FALSE(bad->get_header_value("Retry-After").empty());
    }
  }
  EXPECT_GT(slowed, 0);
  // Even the right password waits now; other persons do not.
  const auto right = http.Post("/api/v1/session", Json{{"name", "Tess Throttle/Acme"}, {"password", kPassword}}.dump(),
                               "application/json");
  EXPECT_EQ(right->status, 429) << "the slow-down holds for every form of the name";
  EXPECT_EQ(sign_in(kJohn).cookie.empty(), false);
}

TEST_F(GatewayApi, APersonReadsAndSetsTheirOwnState) {
  const SignedIn jane = sign_in(kJane);
  ASSERT_FALSE(jane.cookie.empty());
  const auto before = get(jane, "/api/v1/users/me/ooo");
  ASSERT_EQ(before->status, 200) << before->body;
  EXPECT_EQ(json_of(before)["User_Status"], "1");
  EXPECT_TRUE(json_of(before).contains("DateString"));

  // Switching on with a return date in the past: the task's own message, as 422.
  const auto past = put(jane, "me", away(-3, -1));
  ASSERT_EQ(past->status, 422) << past->body;
  EXPECT_EQ(json_of(past)["error"], "The return date must be in the future.");

  Json change = away(1, 8);
  change["Subject"] = "At the Acme fair";
  change["Message"] = "I am at the fair.\nMaria answers meanwhile.";
  const auto set = put(jane, "me", change);
  ASSERT_EQ(set->status, 200) << set->body;
  EXPECT_EQ(json_of(set)["OOOEnable"], "1");

  const auto read_back = get(jane, "/api/v1/users/Jane%20Doe%2FAcme/ooo");
  ASSERT_EQ(read_back->status, 200) << read_back->body;
  const Json stored = json_of(read_back);
  EXPECT_EQ(stored["OOOEnable"], "1");
  EXPECT_EQ(stored["Subject"], "At the Acme fair");
  EXPECT_NE(stored["Message"].get<std::string>().find("Maria answers meanwhile."), std::string::npos);
  EXPECT_EQ(stored["EndTimeDay"], std::to_string(time_parts("EndTime", 8, 9)["EndTimeDay"].get<int>()));

  // Switching off keeps the rest.
  const auto off = put(jane, "me", Json{{"OOOEnable", false}});
  ASSERT_EQ(off->status, 200) << off->body;
  EXPECT_EQ(json_of(off)["OOOEnable"], "0");

  // Every set is in the server log under the front end's name.
  const std::string log = server_->log_once_it_has(
      "tarnwick-http", "Audit: out-of-office of Jane Doe/Acme set by Jane Doe/Acme from 127.0.0.1: before [off");
  EXPECT_NE(log.find("Audit: out-of-office of Jane Doe/Acme set by Jane Doe/Acme from 127.0.0.1: before [off"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("after [on, leave"), std::string::npos) << log;
  EXPECT_NE(log.find("refused ("), std::string::npos) << "the refused set is recorded too: " << log;
}

TEST_F(GatewayApi, ChangesNeedTheCsrfTokenAndJson) {
  const SignedIn jane = sign_in(kJane);
  auto http = server_->client();
  const auto no_token = http.Put("/api/v1/users/me/ooo", jane.headers(false), Json{{"OOOEnable", "0"}}.dump(),
                                 "application/json");
  EXPECT_EQ(no_token->status, 403);
  SignedIn forged = jane;
  forged.csrf = std::string(64, 'a');
  EXPECT_EQ(put(forged, "me", Json{{"OOOEnable", "0"}})->status, 403);
  const auto as_form = http.Put("/api/v1/users/me/ooo", jane.headers(), "OOOEnable=1",
                                "application/x-www-form-urlencoded");
  EXPECT_EQ(as_form->status, 415);
  EXPECT_EQ(put(jane, "me", Json::array({1}))->status, 400);
}

TEST_F(GatewayApi, AnotherPersonsStateNeedsEditorAccessOrTheAdminRole) {
  const SignedIn wei = sign_in(kWei);
  const SignedIn maria = sign_in(kMaria);
  const SignedIn olga = sign_in(kOlga);
  ASSERT_FALSE(wei.cookie.empty() || maria.cookie.empty() || olga.cookie.empty());

  const auto refused = put(wei, "jdoe", away(2, 5));
  EXPECT_EQ(refused->status, 403) << refused->body;
  EXPECT_EQ(get(wei, "/api/v1/users/jdoe/ooo")->status, 403);
  EXPECT_EQ(put(maria, "jsmith", away(2, 5))->status, 403) << "Maria edits only Jane's mail file";

  Json by_maria = away(2, 5);
  by_maria["Subject"] = "Set by Maria";
  const auto allowed = put(maria, "jdoe", by_maria);
  ASSERT_EQ(allowed->status, 200) << allowed->body;
  EXPECT_EQ(json_of(allowed)["Subject"], "Set by Maria");

  Json by_olga = away(3, 6);
  by_olga["Subject"] = "Set by Olga";
  const auto admin = put(olga, "John%20Smith%2FAcme", by_olga);
  ASSERT_EQ(admin->status, 200) << admin->body;
  EXPECT_EQ(json_of(admin)["Subject"], "Set by Olga");

  EXPECT_EQ(put(olga, "Nobody%20Known%2FAcme", by_olga)->status, 404);
  const std::string log =
      server_->log_once_it_has("tarnwick-http", "out-of-office of John Smith/Acme set by Olga Petrova/Acme");
  EXPECT_NE(log.find("out-of-office of Jane Doe/Acme set by Maria Garcia/Acme"), std::string::npos) << log;
  EXPECT_NE(log.find("out-of-office of John Smith/Acme set by Olga Petrova/Acme"), std::string::npos) << log;
}

TEST_F(GatewayApi, GroupStatusIsOpenToEverySignedInPerson) {
  const SignedIn wei = sign_in(kWei);
  const auto status = get(wei, "/api/v1/status?name=Sales");
  ASSERT_EQ(status->status, 200) << status->body;
  const Json users = json_of(status)["users"];
  ASSERT_EQ(users.size(), 3u) << users.dump();
  EXPECT_EQ(users[0]["User_Status"], "1");
  EXPECT_EQ(users[1]["User_Status"], "1");
  EXPECT_EQ(users[2]["User_Status"], "0") << "the unknown member is an error row";
  EXPECT_FALSE(users[2]["ErrorMsg"].get<std::string>().empty());
  EXPECT_EQ(get(wei, "/api/v1/status")->status, 400);
}

TEST_F(GatewayApi, InjectionInEveryFieldChangesNothingElse) {
  const SignedIn wei = sign_in(kWei);
  const SignedIn jane = sign_in(kJane);
  // What a set of Wei's would change (an unset profile reports the current
  // time as its dates, so those move by themselves).
  auto wei_state = [&] {
    const Json state = json_of(get(wei, "/api/v1/users/me/ooo"));
    return Json{{"OOOEnable", state["OOOEnable"]}, {"Subject", state["Subject"]}, {"Message", state["Message"]}};
  };
  const Json wei_before = wei_state();

  const std::string markup = "\"><Username MQName=\"MQ$X\" MailBox=\"mail/wchen.nsf\">CN=Wei Chen/O=Acme</Username><x a=\"";
  Json change = away(1, 4);
  change["Subject"] = markup;
  change["Message"] = markup + "\n]]><!-- &amp; &#0;";
  change["ShowHours"] = "0\" Action=\"3";
  change["DaysOut"] = "<DaysOut/>";
  const auto set = put(jane, "me", change);
  ASSERT_EQ(set->status, 200) << set->body;
  EXPECT_EQ(json_of(set)["Subject"], markup) << "stored as text, exactly";
  EXPECT_EQ(json_of(set)["User"].get<std::string>().find("Wei"), std::string::npos);
  EXPECT_EQ(wei_state(), wei_before) << "Wei's state is untouched";

  // The fields a client may never set, and names with markup.
  for (const char* field : {"MailBox", "MailServer", "Username", "MQName", "LoginName", "Action"}) {
    EXPECT_EQ(put(jane, "me", Json{{field, "mail/wchen.nsf"}})->status, 400) << field;
  }
  EXPECT_EQ(put(jane, "Wei%22%3E%3CUsername%3E", away(1, 2))->status, 400);
  EXPECT_EQ(get(jane, "/api/v1/status?name=%3CSales%3E")->status, 400);
  EXPECT_EQ(get(jane, "/api/v1/status?name=Mail2!!mail%2Fjdoe.nsf")->status, 400);
  EXPECT_EQ(put(jane, "me", Json{{"Subject", "line\nbreak"}})->status, 400);
  EXPECT_EQ(wei_state(), wei_before);
}

TEST_F(GatewayApi, OversizedBodiesAreRefused) {
  const SignedIn jane = sign_in(kJane);
  Json change = {{"Message", std::string(200 * 1024, 'x')}};
  const auto huge = put(jane, "me", change);
  ASSERT_TRUE(huge);
  EXPECT_EQ(huge->status, 413);
  const auto long_message = put(jane, "me", Json{{"Message", std::string(20 * 1024, 'y')}});
  EXPECT_EQ(long_message->status, 400) << "beyond the message limit though within the body limit";
}

TEST_F(GatewayApi, OnlyTheThreeFilesOfTheApplicationDatabaseAreServed) {
  auto http = server_->client();
  const auto icon = http.Get("/OOO.nsf/oooicon.png");
  ASSERT_TRUE(icon);
  EXPECT_EQ(icon->status, 200);
  EXPECT_EQ(icon->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(icon->body.substr(1, 3), "PNG");
  EXPECT_EQ(http.Get("/ooo/OOO.nsf/favicon.ico")->status, 200) << "links relative to a page below a folder";
  EXPECT_EQ(http.Get("/OOO.nsf/OOO.apk")->status, 200);
  for (const char* path : {"/OOO.nsf/../names.nsf", "/OOO.nsf/%2e%2e%2fnames.nsf", "/OOO.nsf/..%2fnotes.ini",
                           "/../OOO.nsf/names.nsf", "/OOO.nsf/OOO.xml", "/OOO.nsf/%2Fetc%2Fpasswd",
                           "/x/../../OOO.nsf/notes.ini", "/names.nsf", "/notes.ini", "/OOO.nsf"}) {
    const auto result = http.Get(path);
    ASSERT_TRUE(result) << path;
    EXPECT_EQ(result->status, 404) << path;
    EXPECT_EQ(result->body.find("ServerName"), std::string::npos) << path;
    EXPECT_EQ(result->body.find("root:"), std::string::npos) << path;
  }
}

TEST_F(GatewayApi, RequestPagesAndTheWebPageAreServed) {
  auto http = server_->client();
  const auto index = http.Get("/");
  ASSERT_EQ(index->status, 200);
  EXPECT_NE(index->body.find("<script src=\"/app.js\""), std::string::npos);
  EXPECT_NE(index->get_header_value("Content-Security-Policy").find("script-src 'self'"), std::string::npos);
  EXPECT_EQ(http.Get("/app.js")->status, 200);
  const Json openapi = json_of(http.Get("/api/v1/openapi.json"));
  EXPECT_TRUE(openapi["paths"].contains("/api/v1/users/{name}/ooo"));

  const auto page = http.Get("/pages/web", sign_in(kJane).headers(false));
  ASSERT_EQ(page->status, 200) << page->body;
  EXPECT_NE(page->body.find("Configure Tarnwick App"), std::string::npos) << page->body;
  EXPECT_NE(page->body.find("tarnwickapp://username=CN=Jane Doe/O=Acme"), std::string::npos) << page->body;
  EXPECT_EQ(page->get_header_value("Content-Security-Policy").find("script"), std::string::npos);
  EXPECT_EQ(http.Get("/pages/ios")->status, 200);
}

TEST_F(GatewayApi, HealthAndMetricsReportTheTask) {
  auto http = server_->client();
  const auto health = http.Get("/healthz");
  ASSERT_EQ(health->status, 200) << health->body;
  sign_in(kJane);
  get(sign_in(kJane), "/api/v1/users/me/ooo");
  const std::string metrics = http.Get("/metrics")->body;
  EXPECT_NE(metrics.find("tarnwick_http_requests_total{kind=\"query\",outcome=\"ok\"}"), std::string::npos) << metrics;
  EXPECT_NE(metrics.find("tarnwick_http_request_seconds_bucket{kind=\"query\",le=\"+Inf\"}"), std::string::npos);
  EXPECT_NE(metrics.find("tarnwick_task_queue_wait_seconds_count{kind=\"query\"}"), std::string::npos);
}

// No task at all: every request that needs it ends with 504, at once.
TEST(GatewayWithoutTask, RequestsEndWith504) {
  Server server("no-task");
  server.admin({"init", server.data().string(), "--server", "Mail1/Acme"});
  server.add_person(kJane, "jdoe");
  ASSERT_NE(server.start_gateway({"--timeout", "3000"}), 0) << server.console("gateway.txt");
  auto http = server.client();
  http.set_read_timeout(20, 0);
  const auto query = http.Get("/api/v1/users/me/ooo", {{"Authorization", basic("jdoe", kPassword)}});
  ASSERT_TRUE(query) << "the front end answered";
  EXPECT_EQ(query->status, 504) << query->body;
  EXPECT_NE(json_of(query)["error"].get<std::string>().find("did not answer"), std::string::npos);
  const auto status = http.Get("/api/v1/status?name=Sales", {{"Authorization", basic("jdoe", kPassword)}});
  ASSERT_TRUE(status);
  EXPECT_EQ(status->status, 504);
  EXPECT_EQ(http.Get("/healthz")->status, 503);
  EXPECT_EQ(http.Get("/")->status, 200) << "the page itself needs no task";
}

// A certificate and key named in notes.ini: HTTPS, and the session cookie
// is marked Secure.
TEST(GatewayTls, TheCertificateOfNotesIniServesHttps) {
  Server server("tls");
  server.admin({"init", server.data().string(), "--server", "Mail1/Acme"});
  server.add_person(kJane, "jdoe");
  const std::string key = (server.data() / "http-key.pem").string();
  const std::string certificate = (server.data() / "http-cert.pem").string();
  ASSERT_EQ(tarnwick::testing::runAndWait({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes",
                                           "-keyout", key, "-out", certificate, "-days", "2", "-subj",
                                           "/CN=localhost"},
                                          server.root() / "openssl.txt"),
            0)
      << server.console("openssl.txt");
  server.admin({"env", "set", "TarnwickHTTPCertificate", "http-cert.pem"});
  server.admin({"env", "set", "TarnwickHTTPKey", "http-key.pem"});
  const int port = server.start_gateway();
  ASSERT_NE(port, 0) << server.console("gateway.txt");
  EXPECT_NE(server.console("gateway.txt").find("listening on https://"), std::string::npos);

  httplib::SSLClient https("127.0.0.1", port);
  https.enable_server_certificate_verification(false);
  https.set_read_timeout(30, 0);
  const auto signed_in = https.Post("/api/v1/session", Json{{"name", "jdoe"}, {"password", kPassword}}.dump(),
                                    "application/json");
  ASSERT_TRUE(signed_in);
  ASSERT_EQ(signed_in->status, 200) << signed_in->body;
  EXPECT_NE(signed_in->get_header_value("Set-Cookie").find("; Secure"), std::string::npos);

  httplib::Client plain("127.0.0.1", port);
  plain.set_read_timeout(5, 0);
  const auto refused = plain.Get("/healthz");
  EXPECT_TRUE(!refused || refused->status != 200) << "no plain HTTP on the TLS port";
}

}  // namespace
}  // namespace tarnwick::gateway::testing
