// The command line as a person meets it: usage errors, missing data
// directories, init and notes.ini.
#include <map>
#include <set>

#include "admin_harness.h"

namespace tarnwick::admin::testing {
namespace {

using AdminUsage = AdminTest;

TEST_F(AdminUsage, BadCommandLinesAreUsageErrorsOfOneLine) {
  const std::vector<std::vector<std::string>> bad = {
      {},                                                      // no command
      {"frobnicate"},                                          // unknown command
      {"init", "x"},                                           // --server missing
      {"--data", "a", "--ini", "b", "env", "get", "X"},        // exclusive options
      {"person", "add"},                                       // FULLNAME missing
      {"person", "add", "Jane Doe/Acme", "--mode", "agent"},   // --mode needs --create-mailfile
      {"note", "set", "names.nsf", "A=1", "--type", "blob"},   // unknown type
      {"mailfile", "create", "mail/x.nsf"},                    // --owner missing
  };
  for (const auto& args : bad) {
    const Result result = run(args);
    EXPECT_EQ(result.code, 2) << join(args) << ": " << result.err;
    EXPECT_EQ(lines(result.err), 1u) << join(args) << ": " << result.err;
    EXPECT_NE(result.err.find("--help"), std::string::npos) << result.err;
  }
}

TEST_F(AdminUsage, MalformedValuesFoundAfterParsingAreUsageErrorsToo) {
  init();
  const std::string dir = data().string();
  const std::vector<std::vector<std::string>> bad = {
      {"--data", dir, "note", "set", "names.nsf", "--profile", "P", "NoEquals"},
      {"--data", dir, "note", "set", "names.nsf", "--profile", "P", "=x"},
      {"--data", dir, "note", "set", "names.nsf", "--profile", "P", "N=abc", "--type", "number"},
      {"--data", dir, "note", "set", "names.nsf", "--profile", "P", "T=2026-03-02T09:30", "--type", "time"},
      {"--data", dir, "note", "dump", "names.nsf"},
      {"--data", dir, "note", "dump", "names.nsf", "--unid", "XYZ"},
      {"--data", dir, "note", "dump", "names.nsf", "--noteid", "12ab"},
  };
  for (const auto& args : bad) {
    const Result result = run(args);
    EXPECT_EQ(result.code, 2) << join(args) << ": " << result.err;
    EXPECT_EQ(lines(result.err), 1u) << result.err;
  }
}

TEST_F(AdminUsage, HelpGoesToStdoutAndSucceeds) {
  const Result all = run({"--help"});
  EXPECT_EQ(all.code, 0);
  for (const char* command : {"init", "person", "group", "mailfile", "note", "env"}) {
    EXPECT_NE(all.out.find(command), std::string::npos) << command;
  }
  const Result one = run({"person", "add", "--help"});
  EXPECT_EQ(one.code, 0);
  EXPECT_NE(one.out.find("--create-mailfile"), std::string::npos) << one.out;
}

TEST_F(AdminUsage, AMissingDataDirectoryOrNotesIniIsNamedInTheError) {
  const std::string missing = (root_ / "no-such-dir").string();
  Result result = run({"--data", missing, "person", "list"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find(missing), std::string::npos) << result.err;
  EXPECT_EQ(lines(result.err), 1u);

  std::filesystem::create_directories(root_ / "empty");
  result = run({"--data", (root_ / "empty").string(), "person", "list"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("notes.ini"), std::string::npos) << result.err;

  result = run({"person", "list"});  // no --data, no NOTES_INI, no ./notes.ini
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("NOTES_INI"), std::string::npos) << result.err;

  // Directory= pointing nowhere.
  std::ofstream(root_ / "stray.ini") << "Directory=" << missing << "\nServerName=CN=X/O=Y\n";
  result = run({"--ini", (root_ / "stray.ini").string(), "env", "get", "ServerName"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find(missing), std::string::npos) << result.err;
}

using AdminInit = AdminTest;

TEST_F(AdminInit, ProvisionsNotesIniDirectoryAndLog) {
  init();
  const std::string ini = read(data() / "notes.ini");
  EXPECT_NE(ini.find("Directory=" + std::filesystem::absolute(data()).string()), std::string::npos) << ini;
  EXPECT_NE(ini.find("ServerName=CN=Mail1/O=Acme"), std::string::npos) << ini;
  EXPECT_NE(ini.find("KeyFilename=server.id"), std::string::npos) << ini;
  EXPECT_TRUE(std::filesystem::exists(data() / "server.id"));
  EXPECT_TRUE(std::filesystem::exists(data() / "names.nsf"));
  EXPECT_TRUE(std::filesystem::exists(data() / "log.nsf"));

  // The templates are built from the shipped designs, and OOO.xml is there
  // as shipped.
  for (const char* file : {"mail.ntf", "OOO.ntf", "OOOEx.ntf", "names.ntf"}) {
    EXPECT_TRUE(std::filesystem::exists(data() / file)) << file;
  }
  const char* source = std::getenv("TARNWICK_SOURCE_DIR");
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(read(data() / "OOO.xml"), read(std::filesystem::path(source) / "design" / "OOO.xml"));
  std::map<std::string, std::string> templates;
  for (const char* file : {"OOO.ntf", "OOOEx.ntf"}) {
    for (const auto& entry : json({"note", "list", file, "--class", "design", "--json"})) {
      if (entry["class"] != "icon") continue;
      const auto icon = json({"note", "dump", file, "--unid", entry["unid"], "--json"});
      templates[file] = item(icon, "$TemplateFileName")["value"];
    }
  }
  EXPECT_EQ(templates["OOO.ntf"], "OOO.ntf");
  EXPECT_EQ(templates["OOOEx.ntf"], "OOOEx.ntf");

  // The directory has the lookup views of its design, which read the items
  // the tool writes.
  std::set<std::string> views;
  for (const auto& entry : json({"design", "list", "names.nsf", "--json"})) {
    if (entry["class"] == "view") views.insert(entry["name"].get<std::string>());
  }
  for (const char* view : {"($Users)", "($Servers)", "($Clusters)", "($Groups)"}) EXPECT_TRUE(views.count(view)) << view;

  // names.nsf takes the template's own ACL entries, roles included.
  std::map<std::string, nlohmann::json> acl;
  const auto names_acl = json({"acl", "show", "names.nsf", "--json"});
  for (const auto& entry : names_acl["entries"]) acl[entry["name"]] = entry;
  EXPECT_EQ(acl["-Default-"]["level"], "reader");
  EXPECT_EQ(acl["LocalDomainServers"]["level"], "manager");
  EXPECT_NE(acl["LocalDomainServers"]["roles"].dump().find("[UserCreator]"), std::string::npos);
  EXPECT_EQ(acl.count("[-Default-]"), 0u);

  // The Server document, with the cluster.
  const auto notes = json({"note", "list", "names.nsf", "--class", "data", "--json"});
  ASSERT_EQ(notes.size(), 1u) << notes.dump();
  EXPECT_EQ(notes[0]["form"], "Server");
  const auto server = json({"note", "dump", "names.nsf", "--unid", notes[0]["unid"], "--json"});
  EXPECT_EQ(item(server, "ServerName")["value"], "CN=Mail1/O=Acme");
  EXPECT_EQ(item(server, "ClusterName")["value"], "AcmeCluster");
}

TEST_F(AdminInit, RefusesANonEmptyDirectoryUnlessForced) {
  std::filesystem::create_directories(data());
  std::ofstream(data() / "keep.txt") << "mine";
  Result result = run({"init", data().string(), "--server", "Mail1/Acme"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("--force"), std::string::npos) << result.err;
  EXPECT_FALSE(std::filesystem::exists(data() / "notes.ini"));

  result = run({"init", data().string(), "--server", "Mail1/Acme", "--force"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(std::filesystem::exists(data() / "keep.txt"));

  // Forcing again replaces the directory instead of failing on it.
  ok({"person", "add", "Jane Doe/Acme"});
  result = run({"init", data().string(), "--server", "Mail1/Acme", "--force"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(json({"person", "list", "--json"}).empty());
}

TEST_F(AdminInit, AMissingDesignFolderIsNamed) {
  std::filesystem::create_directories(root_ / "designs");
  const Result result =
      run({"init", data().string(), "--server", "Mail1/Acme", "--design", (root_ / "designs").string()});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find((root_ / "designs" / "mail.xml").string()), std::string::npos) << result.err;
  EXPECT_EQ(lines(result.err), 1u) << result.err;
  EXPECT_FALSE(std::filesystem::exists(data())) << "nothing is provisioned without the designs";
}

TEST_F(AdminInit, EnvGetAndSetReadAndWriteNotesIni) {
  init();
  EXPECT_EQ(ok({"env", "get", "servername"}).out, "CN=Mail1/O=Acme\n");
  ok({"env", "set", "OOOWorkers", "4"});
  EXPECT_EQ(ok({"env", "get", "OOOWorkers"}).out, "4\n");
  EXPECT_NE(read(data() / "notes.ini").find("OOOWorkers=4"), std::string::npos);
  ok({"env", "set", "OOODirectory", ""});
  EXPECT_EQ(ok({"env", "get", "OOODirectory"}).out, "\n");

  const Result missing = run({"--data", data().string(), "env", "get", "NoSuchVariable"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.err.find("NoSuchVariable"), std::string::npos);

  // NOTES_INI and ./notes.ini find the same file.
  const Result by_env = run({"env", "get", "ServerName"}, {"NOTES_INI=" + (data() / "notes.ini").string()});
  EXPECT_EQ(by_env.out, "CN=Mail1/O=Acme\n") << by_env.err;
}

TEST_F(AdminInit, ServerAddWritesTheServerDocumentAndServersIni) {
  init();
  ok({"server", "add", "Mail2/Acme", "--cluster", "AcmeCluster", "--data", (root_ / "mail2").string()});
  ok({"server", "add", "Mail3/Acme", "--down"});
  std::string ini = read(data() / "servers.ini");
  EXPECT_NE(ini.find("[CN=Mail2/O=Acme]\nDirectory=" + (root_ / "mail2").string() + "\n"), std::string::npos) << ini;
  EXPECT_NE(ini.find("[CN=Mail3/O=Acme]\nState=down\n"), std::string::npos) << ini;

  // Adding again replaces the entry (now down) instead of adding a second.
  ok({"server", "add", "Mail2/Acme", "--cluster", "AcmeCluster", "--down"});
  ini = read(data() / "servers.ini");
  EXPECT_EQ(ini.find("Directory=" + (root_ / "mail2").string()), std::string::npos) << ini;
  EXPECT_EQ(ini.find("[CN=Mail2/O=Acme]"), ini.rfind("[CN=Mail2/O=Acme]"));

  int servers = 0;
  for (const auto& entry : json({"note", "list", "names.nsf", "--class", "data", "--json"})) {
    if (entry["form"] != "Server") continue;
    ++servers;
    const auto doc = json({"note", "dump", "names.nsf", "--unid", entry["unid"], "--json"});
    if (item(doc, "ServerName")["value"] == "CN=Mail2/O=Acme") {
      EXPECT_EQ(item(doc, "ClusterName")["value"], "AcmeCluster");
    }
  }
  EXPECT_EQ(servers, 3);
  EXPECT_EQ(run({"--data", data().string(), "server", "add", "Mail4/Acme"}).code, 2);
}

}  // namespace
}  // namespace tarnwick::admin::testing
