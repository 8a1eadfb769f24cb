// Commands about people and their mail: person, group, mailfile.
#include <iostream>

#include "commands.h"
#include "directory.h"
#include "failure.h"
#include "handles.h"
#include "mail_file.h"
#include "names.h"

namespace tarnwick::admin {

namespace {

void print_mail_file(const std::string& path, const MailFileResult& result) {
  std::cout << "Mail file " << path << " created "
            << (result.template_used.empty() ? "without design (the data directory has no mail.ntf)"
                                             : "from " + result.template_used)
            << "\n";
}

void add_person_commands(Cli& cli) {
  auto* person = cli.app.add_subcommand("person", "Person documents of the directory");
  person->require_subcommand(1);

  struct Options {
    PersonRequest request;
    bool create_mail_file = false;
    std::string mode = "agent";
  };
  auto options = std::make_shared<Options>();
  auto* add = person->add_subcommand("add", "add a person to the directory");
  add->add_option("FULLNAME", options->request.full_name, "the person's name, e.g. \"Jane Doe/Acme\"")->required();
  add->add_option("--short", options->request.short_name, "short name (default: initial and last name, e.g. jdoe)");
  add->add_option("--internet", options->request.internet_address, "Internet address");
  add->add_option("--mailserver", options->request.mail_server, "mail server (default: this server)");
  add->add_option("--mailfile", options->request.mail_file, "mail file path (default: mail/<short name>.nsf)");
  add->add_option("--password", options->request.password, "Internet password (stored as a salted hash)");
  auto* create = add->add_flag("--create-mailfile", options->create_mail_file, "also create the mail file");
  add->add_option("--mode", options->mode, "out-of-office mode of the new mail file: agent or service")
      ->needs(create)
      ->check(CLI::IsMember({"agent", "service"}));
  cli.on_data(add, [options] {
    Database names = Database::open(kDirectoryFile);
    const Person person = add_person(names, options->request, server_name());
    std::cout << "Person " << abbreviated_name(person.full_name) << " (" << person.short_name << "), mail file "
              << person.mail_file << " on " << abbreviated_name(person.mail_server) << "\n";
    if (options->create_mail_file) {
      const MailFileRequest request{person.mail_file, person.full_name, "", parse_mode(options->mode)};
      print_mail_file(person.mail_file, create_mail_file(request, server_name()));
    }
  });

  auto json = std::make_shared<bool>(false);
  auto* list = person->add_subcommand("list", "list the persons of the directory");
  list->add_flag("--json", *json, "print JSON");
  cli.on_data(list, [json] {
    const auto persons = list_persons(Database::open(kDirectoryFile));
    if (*json) {
      nlohmann::ordered_json out = nlohmann::ordered_json::array();
      for (const Person& person : persons) out.push_back(person_json(person));
      std::cout << out.dump(2) << "\n";
      return;
    }
    for (const Person& person : persons) {
      std::cout << abbreviated_name(person.full_name) << "  short " << person.short_name << "  mail "
                << abbreviated_name(person.mail_server) << "!!" << person.mail_file
                << (person.internet_address.empty() ? "" : "  " + person.internet_address) << "\n";
    }
  });
}

void add_group_commands(Cli& cli) {
  auto* group = cli.app.add_subcommand("group", "Group documents of the directory");
  group->require_subcommand(1);

  auto request = std::make_shared<Group>();
  auto* add = group->add_subcommand("add", "add a group (members may be groups)");
  add->add_option("NAME", request->name, "the group's name")->required();
  add->add_option("--members", request->members, "members, comma-separated: persons or groups")
      ->required()
      ->delimiter(',');
  add->add_option("--description", request->description, "what the group is for");
  cli.on_data(add, [request] {
    Database names = Database::open(kDirectoryFile);
    const Group group = add_group(names, *request);
    std::cout << "Group " << group.name << " with " << group.members.size() << " member"
              << (group.members.size() == 1 ? "" : "s") << "\n";
  });

  auto json = std::make_shared<bool>(false);
  auto* list = group->add_subcommand("list", "list the groups of the directory");
  list->add_flag("--json", *json, "print JSON");
  cli.on_data(list, [json] {
    const auto groups = list_groups(Database::open(kDirectoryFile));
    if (*json) {
      nlohmann::ordered_json out = nlohmann::ordered_json::array();
      for (const Group& group : groups) out.push_back(group_json(group));
      std::cout << out.dump(2) << "\n";
      return;
    }
    for (const Group& group : groups) {
      std::cout << group.name << ":";
      for (const std::string& member : group.members) std::cout << " " << abbreviated_name(member) << ";";
      std::cout << (group.description.empty() ? "" : "  (" + group.description + ")") << "\n";
    }
  });
}

void add_mailfile_commands(Cli& cli) {
  auto* mailfile = cli.app.add_subcommand("mailfile", "mail databases");
  mailfile->require_subcommand(1);
  struct Options {
    MailFileRequest request;
    std::string mode = "agent";
  };
  auto options = std::make_shared<Options>();
  auto* create = mailfile->add_subcommand("create", "create a mail database from the mail template");
  create->add_option("PATH", options->request.path, "path in the data directory, e.g. mail/jdoe.nsf")->required();
  create->add_option("--owner", options->request.owner, "the mail file's owner")->required();
  create->add_option("--template", options->request.template_file, "template file (default: mail.ntf)");
  create->add_option("--mode", options->mode, "out-of-office mode: agent or service")
      ->check(CLI::IsMember({"agent", "service"}));
  cli.on_data(create, [options] {
    MailFileRequest request = options->request;
    request.mode = parse_mode(options->mode);
    print_mail_file(request.path, create_mail_file(request, server_name()));
  });
}

}  // namespace

void add_directory_commands(Cli& cli) {
  add_person_commands(cli);
  add_group_commands(cli);
  add_mailfile_commands(cli);
}

}  // namespace tarnwick::admin
