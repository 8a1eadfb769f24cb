// The DXL importer (see importer.h and dxlimport.h).
//
// The import runs in two phases. First every element of the document is
// converted into in-memory notes, ACL and meta entries, and checked (names
// present, values well-formed, formulas compile); each problem is logged with
// its line. Only when the whole document converted cleanly is the second
// phase run: one write_batch stores everything, so a refused document leaves
// no trace.
#include "dxl/importer.h"

#include <cstring>
#include <memory>
#include <optional>

#include "acl.h"
#include "agents.h"
#include "core/status_table.h"
#include "dname.h"
#include "dxl/design_match.h"
#include "dxl/dxl_values.h"
#include "dxl/file_resource.h"
#include "dxl/form_design.h"
#include "dxl/view_design.h"
#include "dxl/xml_tree.h"
#include "formula.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "ods.h"
#include "osmem.h"
#include "osmisc.h"
#include "store/acl_api.h"
#include "store/acl_model.h"
#include "store/ids.h"
#include "text/lmbcs.h"

namespace tarnwick::rt::dxl {
namespace {

using Severity = ImportLog::Severity;

// Thrown to end the conversion at the first fatal error.
struct StopImport {};

std::string lmbcs(std::string_view utf8) {
  if (text::is_plain_ascii(utf8)) return std::string(utf8);
  return text::utf8_to_lmbcs(utf8);
}

std::string xml_escape(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '\'': out += "&apos;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

struct ExistingDesign {
  NOTEID id;
  DesignKind kind;
  std::vector<std::string> names;
};

std::optional<WORD> acl_level(std::string_view word) {
  static constexpr std::string_view kLevels[] = {"noaccess", "depositor", "reader",  "author",
                                                 "editor",   "designer",  "manager"};
  for (WORD i = 0; i < 7; ++i) {
    if (store::names_equal(word, kLevels[i])) return i;
  }
  return std::nullopt;
}

std::string bare_role(std::string_view role) {
  role = trim(role);
  if (role.size() >= 2 && role.front() == '[' && role.back() == ']') role = role.substr(1, role.size() - 2);
  return std::string(role);
}

class Importer {
 public:
  Importer(std::shared_ptr<store::Database> database, const ImportOptions& options, ImportLog& log)
      : database_(std::move(database)), options_(options), log_(log) {}

  STATUS run(std::string_view dxl) {
    XmlError parse_error;
    std::unique_ptr<XmlElement> root = parse_xml(dxl, parse_error);
    if (!root) {
      log_.add(Severity::kFatalError, parse_error.line, "XML parser: " + parse_error.message);
      return ERR_DXL_IMPORTER_FAILED;
    }
    try {
      if (STATUS error = load_existing_design()) return error;
      convert_root(*root);
    } catch (const StopImport&) {
    }
    if (failed_) return ERR_DXL_IMPORTER_FAILED;
    return store();
  }

 private:
  // --- logging -------------------------------------------------------------

  void fatal(const XmlElement& at, std::string text) { fatal_at(at.line, std::move(text)); }

  void fatal_at(int line, std::string text) {
    log_.add(Severity::kFatalError, line, std::move(text));
    failed_ = true;
    if (options_.exit_on_first_fatal_error) throw StopImport{};
  }

  void unknown(const XmlElement& at, const std::string& text) {
    switch (options_.unknown_token) {
      case DXLLOGOPTION_IGNORE:
        return;
      case DXLLOGOPTION_WARNING:
        log_.add(Severity::kWarning, at.line, text);
        return;
      default:
        fatal(at, text);
    }
  }

  void unknown_child(const XmlElement& parent, const XmlElement& child) {
    unknown(child, "Unknown " + parent.name + " element child element: " + child.name);
  }

  // --- small readers -------------------------------------------------------

  std::string required(const XmlElement& element, std::string_view attribute) {
    const std::string* value = element.attribute(attribute);
    if (value == nullptr || trim(*value).empty()) {
      fatal(element, element.name + " element must have " + std::string(attribute) + " attribute");
      return {};
    }
    return std::string(trim(*value));
  }

  std::string optional_attribute(const XmlElement& element, std::string_view attribute) {
    const std::string* value = element.attribute(attribute);
    return value ? *value : std::string();
  }

  bool boolean(const XmlElement& element, std::string_view attribute, bool fallback) {
    const std::string* value = element.attribute(attribute);
    if (value == nullptr) return fallback;
    bool parsed = fallback;
    if (!parse_bool(*value, &parsed)) {
      fatal(element, "Invalid boolean attribute value (must be 'true' or 'false'): " + std::string(attribute) + "='" +
                         *value + "'");
    }
    return parsed;
  }

  // The formula text of <code><formula>...</formula></code>, checked to
  // compile; empty when the formula is missing.
  std::string formula_of(const XmlElement& code) {
    const XmlElement* formula = code.child("formula");
    for (const auto& child : code.children) {
      if (child->name != "formula") unknown_child(code, *child);
    }
    if (formula == nullptr) {
      fatal(code, "code element must contain formula element");
      return {};
    }
    std::string source = lmbcs(trim(formula->text));
    check_formula(*formula, source);
    return source;
  }

  void check_formula(const XmlElement& at, const std::string& source) {
    if (source.empty()) {
      fatal(at, "formula element must contain a value");
      return;
    }
    if (source.size() > 0xFFFF) {
      fatal(at, "formula is too long");
      return;
    }
    FORMULAHANDLE compiled = NULLHANDLE;
    STATUS detail = NOERROR;
    WORD line = 0, column = 0;
    const STATUS status = NSFFormulaCompile(nullptr, 0, source.data(), static_cast<WORD>(source.size()), &compiled,
                                            nullptr, &detail, &line, &column, nullptr, nullptr);
    if (compiled != NULLHANDLE) OSMemFree(compiled);
    if (status == NOERROR) return;
    char text[256] = {};
    OSLoadString(NULLHANDLE, ERR(detail != NOERROR ? detail : status), text, sizeof(text));
    fatal_at(at.line + (line > 0 ? line - 1 : 0),
             "formula does not compile: " + std::string(text) + " (formula line " + std::to_string(line) +
                 ", column " + std::to_string(column) + ")");
  }

  // --- notes ---------------------------------------------------------------

  store::Note& new_note(WORD note_class) {
    auto note = std::make_unique<store::Note>();
    note->note_class = note_class;
    const UNIVERSALNOTEID unid = store::new_unid();
    note->oid.File = unid.File;
    note->oid.Note = unid.Note;
    notes_.push_back(std::move(note));
    return *notes_.back();
  }

  // Makes `note` replace the stored note `id`.
  STATUS take_place_of(store::Note& note, NOTEID id) {
    store::NoteRecord record;
    if (STATUS error = database_->record_of(id, &record)) return error;
    note.id = id;
    note.stored = true;
    note.stored_sequence = record.sequence;
    note.oid.File = record.unid.File;
    note.oid.Note = record.unid.Note;
    note.oid.Sequence = record.sequence;
    return NOERROR;
  }

  // Reads one <item> into the note (appended, or replacing items of that
  // name when `replace`).
  void read_item(const XmlElement& element, store::Note& note, bool replace) {
    const std::string name = lmbcs(required(element, "name"));
    if (name.empty()) return;
    if (name.size() > MAXITEMNAME) {
      fatal(element, "Name exceeds maximum length");
      return;
    }
    WORD flags = 0;
    if (boolean(element, "summary", true)) flags |= ITEM_SUMMARY;
    if (boolean(element, "sign", false)) flags |= ITEM_SIGN;
    if (boolean(element, "protected", false)) flags |= ITEM_PROTECTED;
    if (boolean(element, "names", false)) flags |= ITEM_NAMES;
    if (boolean(element, "authors", false)) flags |= ITEM_NAMES | ITEM_READWRITERS;
    if (boolean(element, "readers", false)) flags |= ITEM_NAMES | ITEM_READERS;
    if (element.children.size() != 1) {
      fatal(element, "item element must contain exactly one value element");
      return;
    }
    const XmlElement& value = *element.children.front();
    WORD type = TYPE_TEXT;
    std::string bytes;
    if (value.name == "text") {
      bytes = lmbcs(value.text);
      no_children(value);
    } else if (value.name == "textlist") {
      type = TYPE_TEXT_LIST;
      std::vector<std::string> entries;
      for (const auto& entry : value.children) {
        if (entry->name != "text") {
          unknown_child(value, *entry);
          continue;
        }
        entries.push_back(lmbcs(entry->text));
      }
      std::vector<std::string_view> views(entries.begin(), entries.end());
      bytes = store::make_text_list(views);
    } else if (value.name == "number" || value.name == "numberlist") {
      std::vector<NUMBER> numbers;
      if (value.name == "number") {
        numbers.push_back(number_of(value));
      } else {
        for (const auto& entry : value.children) {
          if (entry->name == "number") {
            numbers.push_back(number_of(*entry));
          } else {
            unknown_child(value, *entry);
          }
        }
      }
      type = value.name == "number" ? TYPE_NUMBER : TYPE_NUMBER_RANGE;
      if (type == TYPE_NUMBER_RANGE) range_header(bytes, numbers.size());
      for (NUMBER n : numbers) bytes.append(reinterpret_cast<const char*>(&n), sizeof(n));
    } else if (value.name == "datetime" || value.name == "datetimelist") {
      std::vector<TIMEDATE> times;
      if (value.name == "datetime") {
        times.push_back(datetime_of(value));
      } else {
        for (const auto& entry : value.children) {
          if (entry->name == "datetime") {
            times.push_back(datetime_of(*entry));
          } else {
            unknown_child(value, *entry);
          }
        }
      }
      type = value.name == "datetime" ? TYPE_TIME : TYPE_TIME_RANGE;
      if (type == TYPE_TIME_RANGE) range_header(bytes, times.size());
      for (const TIMEDATE& t : times) bytes.append(reinterpret_cast<const char*>(&t), sizeof(t));
    } else {
      unknown_child(element, value);
      return;
    }
    if (bytes.size() > MAXITEMVALUE) {
      fatal(element, "item value is too large");
      return;
    }
    if (replace) {
      note.replace(name, flags, type, std::move(bytes));
    } else {
      note.append(name, flags, type, std::move(bytes));
    }
  }

  void range_header(std::string& bytes, size_t count) {
    const RANGE range{static_cast<USHORT>(std::min<size_t>(count, 0xFFFF)), 0};
    bytes.append(reinterpret_cast<const char*>(&range), sizeof(range));
  }

  void no_children(const XmlElement& element) {
    for (const auto& child : element.children) unknown_child(element, *child);
  }

  NUMBER number_of(const XmlElement& element) {
    NUMBER value = 0;
    if (!parse_number(element.text, &value)) fatal(element, "Number value is invalid or too large: " + element.text);
    return value;
  }

  TIMEDATE datetime_of(const XmlElement& element) {
    TIMEDATE value{};
    if (!parse_datetime(element.text, &value)) {
      fatal(element, "datetime element value is not a valid ISO 8601 date/time string: " + element.text);
    }
    return value;
  }

  // --- the document ----------------------------------------------------------

  STATUS load_existing_design() {
    return database_->design_notes(NOTE_CLASS_ALLNONDATA, [&](NOTEID id, WORD note_class, std::string_view title,
                                                              std::string_view flags) {
      existing_design_.push_back(ExistingDesign{id, design_kind(note_class, flags), title_names(title)});
      return STATUS{NOERROR};
    });
  }

  void convert_root(const XmlElement& root) {
    if (root.name != "database") {
      fatal(root, "Unknown element: " + root.name + " (the root must be a database element)");
      return;
    }
    database_properties(root);
    for (const auto& child : root.children) {
      const std::string& name = child->name;
      if (name == "acl") {
        acl(*child);
      } else if (name == "form" || name == "subform") {
        form(*child);
      } else if (name == "view" || name == "folder") {
        view(*child);
      } else if (name == "agent") {
        agent(*child);
      } else if (name == "fileresource") {
        file_resource(*child);
      } else if (name == "document") {
        document(*child);
      } else {
        unknown_child(root, *child);
      }
    }
  }

  void database_properties(const XmlElement& root) {
    struct Field {
      const char* attribute;
      WORD what;
    };
    static constexpr Field kFields[] = {{"title", INFOPARSE_TITLE},
                                        {"categories", INFOPARSE_CATEGORIES},
                                        {"templatename", INFOPARSE_CLASS},
                                        {"fromtemplate", INFOPARSE_DESIGN_CLASS}};
    for (const Field& field : kFields) {
      const std::string* value = root.attribute(field.attribute);
      if (value == nullptr) continue;
      const std::string text = lmbcs(*value);
      if (text.size() >= NSF_INFO_SIZE) fatal(root, std::string("database ") + field.attribute + " is too long");
      info_changes_.emplace_back(field.what, text);
    }
  }

  // --- ACL -----------------------------------------------------------------

  void acl(const XmlElement& element) {
    saw_acl_ = true;
    store::Acl incoming;
    std::vector<std::string> roles;
    for (const auto& child : element.children) {
      if (child->name == "role") {
        const std::string role = bare_role(lmbcs(child->text));
        if (role.empty() || role.size() >= ACL_PRIVNAMEMAX) {
          fatal(*child, "role element must contain a role name of at most 15 characters");
          continue;
        }
        roles.push_back(role);
      } else if (child->name != "aclentry") {
        unknown_child(element, *child);
      }
    }
    if (roles.size() > ACL_PRIVCOUNT - ACL_BITPRIVCOUNT) fatal(element, "acl element holds too many roles");
    for (size_t i = 0; i < roles.size() && i + ACL_BITPRIVCOUNT < ACL_PRIVCOUNT; ++i) {
      incoming.roles[i + ACL_BITPRIVCOUNT] = roles[i];
    }
    bool has_default = false;
    for (const auto& child : element.children) {
      if (child->name != "aclentry") continue;
      store::AclEntry entry = acl_entry(*child, incoming);
      if (store::names_equal(entry.name, ACL_DEFAULT_NAME)) has_default = true;
      incoming.entries.push_back(std::move(entry));
    }
    if (!has_default) incoming.entries.insert(incoming.entries.begin(), store::AclEntry{ACL_DEFAULT_NAME});
    if (incoming.entries.size() > ACL_MAX_ENTRIES) fatal(element, "acl element holds too many entries");
    incoming_acl_ = std::move(incoming);
  }

  store::AclEntry acl_entry(const XmlElement& element, const store::Acl& acl) {
    store::AclEntry entry;
    const bool is_default = boolean(element, "default", false);
    std::string name = is_default ? std::string(ACL_DEFAULT_NAME) : lmbcs(required(element, "name"));
    if (!store::names_equal(name, ACL_DEFAULT_NAME) && name.find('/') != std::string::npos) {
      char canonical[MAXUSERNAME] = {};
      WORD length = 0;
      if (DNCanonicalize(0, nullptr, name.c_str(), canonical, sizeof(canonical), &length) == NOERROR) {
        name.assign(canonical, length);
      }
    }
    entry.name = std::move(name);
    const std::string level_word = required(element, "level");
    if (auto level = acl_level(level_word)) {
      entry.level = *level;
    } else if (!level_word.empty()) {
      fatal(element, "Unknown aclentry element attribute value: level='" + level_word + "'");
    }
    const std::string type = optional_attribute(element, "type");
    if (type == "person") {
      entry.flags |= ACL_FLAG_PERSON;
    } else if (type == "server") {
      entry.flags |= ACL_FLAG_SERVER;
    } else if (type == "mixedgroup") {
      entry.flags |= ACL_FLAG_GROUP;
    } else if (type == "persongroup") {
      entry.flags |= ACL_FLAG_GROUP | ACL_FLAG_PERSON;
    } else if (type == "servergroup") {
      entry.flags |= ACL_FLAG_GROUP | ACL_FLAG_SERVER;
    } else if (!type.empty() && type != "unspecified") {
      fatal(element, "Unknown aclentry element attribute value: type='" + type + "'");
    }
    if (!boolean(element, "createdocs", true) && entry.level == ACL_LEVEL_AUTHOR) {
      entry.flags |= ACL_FLAG_AUTHOR_NOCREATE;
    }
    if (!boolean(element, "deletedocs", entry.level >= ACL_LEVEL_AUTHOR)) entry.flags |= ACL_FLAG_NODELETE;
    if (boolean(element, "createpersonalagents", false)) entry.flags |= ACL_FLAG_CREATE_PRAGENT;
    if (boolean(element, "createpersonalviews", false)) entry.flags |= ACL_FLAG_CREATE_PRFOLDER;
    if (boolean(element, "createsharedviews", false)) entry.flags |= ACL_FLAG_CREATE_FOLDER;
    if (boolean(element, "createlotusscript", false)) entry.flags |= ACL_FLAG_CREATE_LOTUSSCRIPT;
    if (boolean(element, "readpublicdocs", false)) entry.flags |= ACL_FLAG_PUBLICREADER;
    if (boolean(element, "writepublicdocs", false)) entry.flags |= ACL_FLAG_PUBLICWRITER;
    if (boolean(element, "adminreaderauthor", false)) entry.flags |= ACL_FLAG_ADMIN_READERAUTHOR;
    for (const auto& child : element.children) {
      if (child->name != "role") {
        unknown_child(element, *child);
        continue;
      }
      const std::string role = bare_role(lmbcs(child->text));
      bool found = false;
      for (size_t i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
        if (!acl.roles[i].empty() && store::names_equal(acl.roles[i], role)) {
          ACLSetPriv(entry.privileges, i);
          found = true;
        }
      }
      if (!found) fatal(*child, "aclentry names a role the acl does not define: " + role);
    }
    return entry;
  }

  // The ACL to store, from the database's and the incoming one.
  STATUS merged_acl(store::Acl* result) {
    const WORD option = options_.acl;
    if (option == DXLIMPORTOPTION_CREATE || option == DXLIMPORTOPTION_REPLACE_ELSE_IGNORE ||
        option == DXLIMPORTOPTION_REPLACE_ELSE_CREATE) {
      *result = *incoming_acl_;
      return NOERROR;
    }
    if (STATUS error = store::read_database_acl(*database_, result)) return error;
    // Roles of the incoming ACL are carried over by name, into free places.
    auto role_index = [&](const std::string& role) -> int {
      for (size_t i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
        if (!result->roles[i].empty() && store::names_equal(result->roles[i], role)) return static_cast<int>(i);
      }
      for (size_t i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
        if (result->roles[i].empty()) {
          result->roles[i] = role;
          return static_cast<int>(i);
        }
      }
      return -1;
    };
    for (store::AclEntry entry : incoming_acl_->entries) {
      ACL_PRIVILEGES privileges{};
      for (size_t i = 0; i < ACL_PRIVCOUNT; ++i) {
        if (!ACLIsPrivSet(entry.privileges, i)) continue;
        const int index = i < ACL_BITPRIVCOUNT ? static_cast<int>(i) : role_index(incoming_acl_->roles[i]);
        if (index >= 0) ACLSetPriv(privileges, index);
      }
      entry.privileges = privileges;
      store::AclEntry* existing = result->find(entry.name);
      if (existing != nullptr) {
        *existing = std::move(entry);
      } else if (option == DXLIMPORTOPTION_UPDATE_ELSE_CREATE || option == DXLIMPORTOPTION_IGNORE_ELSE_CREATE) {
        result->entries.push_back(std::move(entry));
      }
    }
    return NOERROR;
  }

  // --- design elements -----------------------------------------------------

  // The $TITLE text of a design element: name, then the aliases.
  std::string design_title(const XmlElement& element) {
    std::string title = lmbcs(required(element, "name"));
    const std::string alias = lmbcs(trim(optional_attribute(element, "alias")));
    if (!alias.empty()) title += "|" + alias;
    return title;
  }

  store::Note& design_note(const XmlElement& element, WORD note_class, std::string_view flags) {
    store::Note& note = new_note(note_class);
    note.set_text("$TITLE", design_title(element));
    note.set_text("$Flags", flags);
    const std::string comment = optional_attribute(element, "comment");
    if (!comment.empty()) note.set_text("$Comment", lmbcs(comment));
    design_notes_.push_back(DesignPlan{&note, element.line});
    return note;
  }

  void form(const XmlElement& element) {
    const bool subform = element.name == "subform";
    WORD note_class = NOTE_CLASS_FORM;
    if (!subform && boolean(element, "default", false)) note_class |= NOTE_CLASS_DEFAULT;
    store::Note& note = design_note(element, note_class, subform ? "U" : "");
    std::vector<FieldDesign> fields;
    for (const auto& child : element.children) {
      if (child->name == "field") {
        fields.push_back(field(*child));
      } else if (child->name == "body" || child->name == "richtext") {
        collect_fields(*child, fields);
      } else if (child->name == "item") {
        read_item(*child, note, true);
      } else if (child->name == "code") {
        // Form events (window title, web query) are not run by this runtime.
        formula_of(*child);
      } else {
        unknown_child(element, *child);
      }
    }
    for (size_t i = 0; i < fields.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (store::names_equal(fields[i].name, fields[j].name)) {
          fatal(element, "form defines the field " + fields[i].name + " twice");
        }
      }
    }
    write_form_fields(note, fields);
  }

  // Fields anywhere inside rich text (paragraphs, tables, sections).
  void collect_fields(const XmlElement& element, std::vector<FieldDesign>& fields) {
    for (const auto& child : element.children) {
      if (child->name == "field") {
        fields.push_back(field(*child));
      } else {
        collect_fields(*child, fields);
      }
    }
  }

  FieldDesign field(const XmlElement& element) {
    FieldDesign field;
    field.name = lmbcs(required(element, "name"));
    const std::string kind = optional_attribute(element, "kind");
    if (!kind.empty() && !parse_field_kind(kind, &field.kind)) {
      fatal(element, "Unknown field element attribute value: kind='" + kind + "'");
    }
    const std::string type = optional_attribute(element, "type");
    if (!type.empty() && !parse_field_type(type, &field.type)) {
      fatal(element, "Unknown field element attribute value: type='" + type + "'");
    }
    field.multiple_values = boolean(element, "allowmultivalues", false);
    for (const auto& child : element.children) {
      if (child->name != "code") {
        unknown_child(element, *child);
        continue;
      }
      const std::string event = optional_attribute(*child, "event");
      std::string* target = event == "defaultvalue"       ? &field.default_formula
                            : event == "value"            ? &field.value_formula
                            : event == "inputtranslation" ? &field.translate_formula
                            : event == "inputvalidation"  ? &field.validate_formula
                                                          : nullptr;
      if (target == nullptr) {
        fatal(*child, "code element event='" + event + "' is not a valid field element event");
        continue;
      }
      *target = formula_of(*child);
    }
    if (field.kind != FieldKind::kEditable && field.value_formula.empty()) {
      fatal(element, "computed field " + field.name + " must have a value formula");
    }
    return field;
  }

  void view(const XmlElement& element) {
    const bool folder = element.name == "folder";
    WORD note_class = NOTE_CLASS_VIEW;
    if (boolean(element, "default", false)) note_class |= NOTE_CLASS_DEFAULT;
    store::Note& note = design_note(element, note_class, folder ? "F" : "");
    ViewDesign design;
    for (const auto& child : element.children) {
      if (child->name == "code") {
        const std::string event = optional_attribute(*child, "event");
        if (event != "selection") {
          fatal(*child, "code element event='" + event + "' is not a valid view element event");
          continue;
        }
        design.selection_formula = formula_of(*child);
      } else if (child->name == "column") {
        design.columns.push_back(column(*child, design.columns.size()));
      } else if (child->name == "item") {
        read_item(*child, note, true);
      } else {
        unknown_child(element, *child);
      }
    }
    write_view_design(note, design);
  }

  ColumnDesign column(const XmlElement& element, size_t index) {
    ColumnDesign column;
    column.item_name = lmbcs(trim(optional_attribute(element, "itemname")));
    if (column.item_name.empty()) column.item_name = "$" + std::to_string(index);
    const std::string sort = optional_attribute(element, "sort");
    if (sort == "ascending") {
      column.sort = ColumnSort::kAscending;
    } else if (sort == "descending") {
      column.sort = ColumnSort::kDescending;
    } else if (!sort.empty() && sort != "none") {
      fatal(element, "Unknown column element attribute value: sort='" + sort + "'");
    }
    column.case_sensitive = !boolean(element, "sortnocase", true);
    column.categorized = boolean(element, "categorized", false);
    column.separate_values = boolean(element, "separatemultiplevalues", false);
    for (const auto& child : element.children) {
      if (child->name == "columnheader") {
        column.title = lmbcs(optional_attribute(*child, "title"));
      } else if (child->name == "code") {
        const std::string event = optional_attribute(*child, "event");
        if (event != "value") {
          fatal(*child, "code element event='" + event + "' is not a valid column element event");
          continue;
        }
        column.formula = formula_of(*child);
      } else {
        unknown_child(element, *child);
      }
    }
    return column;
  }

  void agent(const XmlElement& element) {
    const bool enabled = boolean(element, "enabled", true);
    store::Note& note = design_note(element, NOTE_CLASS_FILTER, "f");
    ODS_ASSISTSTRUCT info{};
    std::string machine;
    std::string action;
    std::string query;
    for (const auto& child : element.children) {
      if (child->name == "trigger") {
        trigger(*child, info, machine);
      } else if (child->name == "documentset") {
        document_set(*child, info);
      } else if (child->name == "code") {
        const std::string event = optional_attribute(*child, "event");
        if (event == "action") {
          action = formula_of(*child);
        } else if (event == "selection") {
          query = formula_of(*child);
        } else {
          fatal(*child, "code element event='" + event + "' is not a valid agent element event");
        }
      } else if (child->name == "item") {
        continue;  // applied after the agent's own items, below
      } else {
        unknown_child(element, *child);
      }
    }
    if (action.empty()) fatal(element, "agent element must contain code element event='action'");
    constexpr WORD kSummarySigned = ITEM_SUMMARY | ITEM_SIGN;
    note.set_text(ASSIST_FLAGS_ITEM, enabled ? "E" : "", kSummarySigned);
    note.set_text(ASSIST_TRIGGER_ITEM, std::to_string(info.wTriggerType), ITEM_SUMMARY);
    if (!machine.empty()) note.set_text(FILTER_MACHINE_ITEM, machine, kSummarySigned);
    const std::string on_behalf = optional_attribute(element, "runonbehalfof");
    if (!on_behalf.empty()) note.set_text("$OnBehalfOf", lmbcs(on_behalf), kSummarySigned);
    std::string record(ODSLength(_ODS_ASSISTSTRUCT), '\0');
    void* cursor = record.data();
    ODSWriteMemory(&cursor, _ODS_ASSISTSTRUCT, &info, 1);
    note.replace(ASSIST_INFO_ITEM, ITEM_SIGN, TYPE_ASSISTANT_INFO, std::move(record));
    note.set_text(ASSIST_ACTION_ITEM, action, ITEM_SIGN);
    if (!query.empty()) note.set_text(ASSIST_QUERY_ITEM, query, ITEM_SIGN);
    note.set_time(ASSIST_LASTRUN_ITEM, TIMEDATE{{0, 0}}, ITEM_SUMMARY);
    note.set_number(ASSIST_DOCCOUNT_ITEM, 0, ITEM_SUMMARY);
    for (const auto& child : element.children) {
      if (child->name == "item") read_item(*child, note, true);
    }
  }

  void trigger(const XmlElement& element, ODS_ASSISTSTRUCT& info, std::string& machine) {
    static constexpr std::pair<std::string_view, WORD> kTriggers[] = {
        {"scheduled", ASSISTTRIGGER_TYPE_SCHEDULED},   {"afternewmail", ASSISTTRIGGER_TYPE_NEWMAIL},
        {"newmail", ASSISTTRIGGER_TYPE_NEWMAIL},       {"docpasted", ASSISTTRIGGER_TYPE_PASTED},
        {"actionsmenu", ASSISTTRIGGER_TYPE_MANUAL},    {"agentlist", ASSISTTRIGGER_TYPE_MANUAL},
        {"manual", ASSISTTRIGGER_TYPE_MANUAL},         {"docupdated", ASSISTTRIGGER_TYPE_DOCUPDATE},
        {"beforenewmail", ASSISTTRIGGER_TYPE_SYNCHNEWMAIL}, {"serverstart", ASSISTTRIGGER_TYPE_SERVERSTART}};
    const std::string type = required(element, "type");
    bool known = false;
    for (const auto& [word, value] : kTriggers) {
      if (type == word) {
        info.wTriggerType = value;
        known = true;
      }
    }
    if (!known && !type.empty()) fatal(element, "Unknown trigger element attribute value: type='" + type + "'");
    for (const auto& child : element.children) {
      if (child->name == "schedule") {
        schedule(*child, info, machine);
      } else {
        unknown_child(element, *child);
      }
    }
  }

  void schedule(const XmlElement& element, ODS_ASSISTSTRUCT& info, std::string& machine) {
    static constexpr std::pair<std::string_view, WORD> kIntervals[] = {{"byminutes", ASSISTINTERVAL_TYPE_MINUTES},
                                                                       {"daily", ASSISTINTERVAL_TYPE_DAYS},
                                                                       {"weekly", ASSISTINTERVAL_TYPE_WEEK},
                                                                       {"monthly", ASSISTINTERVAL_TYPE_MONTH},
                                                                       {"never", ASSISTINTERVAL_TYPE_NONE}};
    const std::string type = required(element, "type");
    bool known = false;
    for (const auto& [word, value] : kIntervals) {
      if (type == word) {
        info.wIntervalType = value;
        known = true;
      }
    }
    if (!known && !type.empty()) fatal(element, "Unknown schedule element attribute value: type='" + type + "'");
    info.wInterval = 1;
    const std::string interval = optional_attribute(element, "interval");
    if (!interval.empty()) {
      NUMBER n = 0;
      if (!parse_number(interval, &n) || n < 1 || n > 0xFFFF) {
        fatal(element, "Invalid schedule element attribute value: interval='" + interval + "'");
      } else {
        info.wInterval = static_cast<WORD>(n);
      }
    }
    const std::string location = optional_attribute(element, "runlocation");
    if (location == "specific") {
      machine = lmbcs(required(element, "runserver"));
      char canonical[MAXUSERNAME] = {};
      WORD length = 0;
      if (DNCanonicalize(0, nullptr, machine.c_str(), canonical, sizeof(canonical), &length) == NOERROR) {
        machine.assign(canonical, length);
      }
    } else if (location == "choosewhenenabled") {
      info.dwFlags |= ASSISTODS_FLAG_CHOOSEWHENENABLED;
    } else if (!location.empty() && location != "any" && location != "local") {
      fatal(element, "Unknown schedule element attribute value: runlocation='" + location + "'");
    }
    if (boolean(element, "runonweekends", true) == false) info.dwFlags |= ASSISTODS_FLAG_NOWEEKENDS;
    for (const auto& child : element.children) {
      if (child->name == "starttime" || child->name == "endtime") {
        const XmlElement* when = child->child("datetime");
        if (when == nullptr) {
          fatal(*child, child->name + " element must contain datetime element");
          continue;
        }
        const TIMEDATE moment = datetime_of(*when);
        DWORD& target = child->name == "starttime" ? info.dwTime1 : info.dwTime2;
        if (moment.Innards[0] != 0xFFFFFFFFu) target = moment.Innards[0];
      } else if (child->name == "startdate" || child->name == "enddate") {
        const XmlElement* when = child->child("datetime");
        if (when == nullptr) {
          fatal(*child, child->name + " element must contain datetime element");
          continue;
        }
        (child->name == "startdate" ? info.StartTime : info.EndTime) = datetime_of(*when);
      } else {
        unknown_child(element, *child);
      }
    }
  }

  void document_set(const XmlElement& element, ODS_ASSISTSTRUCT& info) {
    static constexpr std::pair<std::string_view, WORD> kSearches[] = {
        {"all", ASSISTSEARCH_TYPE_ALL},          {"new", ASSISTSEARCH_TYPE_NEW},
        {"modified", ASSISTSEARCH_TYPE_MODIFIED}, {"selected", ASSISTSEARCH_TYPE_SELECTED},
        {"view", ASSISTSEARCH_TYPE_VIEW},         {"unread", ASSISTSEARCH_TYPE_UNREAD},
        {"prompt", ASSISTSEARCH_TYPE_PROMPT},     {"runonce", ASSISTSEARCH_TYPE_UI},
        {"none", ASSISTSEARCH_TYPE_NONE}};
    const std::string type = required(element, "type");
    bool known = false;
    for (const auto& [word, value] : kSearches) {
      if (type == word) {
        info.wSearchType = value;
        known = true;
      }
    }
    if (!known && !type.empty()) fatal(element, "Unknown documentset element attribute value: type='" + type + "'");
    no_children(element);
  }

  void file_resource(const XmlElement& element) {
    store::Note& note = design_note(element, NOTE_CLASS_FORM, std::string(1, kFileResourceFlag));
    const std::string mime = optional_attribute(element, "mimetype");
    const XmlElement* data = element.child("filedata");
    for (const auto& child : element.children) {
      if (child->name != "filedata" && child->name != "item") unknown_child(element, *child);
    }
    std::string bytes;
    if (data == nullptr) {
      fatal(element, "fileresource element must contain filedata element");
    } else if (!decode_base64(data->text, &bytes) || bytes.size() > MAXITEMVALUE - 64) {
      fatal(*data, "Base64 byte stream contains invalid data or is too large to store in a single note item");
    }
    write_file_resource(note, mime, bytes);
    for (const auto& child : element.children) {
      if (child->name == "item") read_item(*child, note, true);
    }
  }

  // --- documents -----------------------------------------------------------

  void document(const XmlElement& element) {
    store::Note& note = new_note(NOTE_CLASS_DOCUMENT);
    std::optional<UNIVERSALNOTEID> unid;
    for (const auto& child : element.children) {
      if (child->name == "noteinfo") {
        const std::string* text = child->attribute("unid");
        UNIVERSALNOTEID parsed{};
        if (text != nullptr && !parse_unid(*text, &parsed)) {
          fatal(*child, "Invalid unid (universal ID) value: " + *text);
        } else if (text != nullptr) {
          unid = parsed;
        }
      } else if (child->name == "item") {
        read_item(*child, note, false);
      } else {
        unknown_child(element, *child);
      }
    }
    const std::string form = optional_attribute(element, "form");
    if (!form.empty() && !note.has("Form")) {
      note.items.insert(note.items.begin(), store::Item{"Form", ITEM_SUMMARY, TYPE_TEXT, lmbcs(form)});
      note.number_items();
    }
    document_plans_.push_back(DocumentPlan{&note, unid, element.line});
  }

  // --- storing -------------------------------------------------------------

  struct DesignPlan {
    store::Note* note;
    int line;
  };
  struct DocumentPlan {
    store::Note* note;
    std::optional<UNIVERSALNOTEID> unid;
    int line;
  };

  // Decides, per design note, whether it is written as new, replaces a
  // stored one, or is left out.
  STATUS plan_design(store::Database::Batch& batch) {
    const WORD option = options_.design;
    if (option == DXLIMPORTOPTION_IGNORE) return NOERROR;
    for (const DesignPlan& plan : design_notes_) {
      store::Note& note = *plan.note;
      const DesignKind kind = design_kind(note.note_class, note.text("$Flags").value_or(std::string()));
      const std::vector<std::string> names = title_names(note.text("$TITLE").value_or(std::string()));
      const ExistingDesign* match = nullptr;
      for (const ExistingDesign& existing : existing_design_) {
        if (existing.kind == kind && names_overlap(existing.names, names)) {
          match = &existing;
          break;
        }
      }
      const bool replace = option == DXLIMPORTOPTION_REPLACE_ELSE_IGNORE ||
                           option == DXLIMPORTOPTION_REPLACE_ELSE_CREATE ||
                           option == DXLIMPORTOPTION_UPDATE_ELSE_IGNORE || option == DXLIMPORTOPTION_UPDATE_ELSE_CREATE;
      const bool create_unmatched = option != DXLIMPORTOPTION_REPLACE_ELSE_IGNORE &&
                                    option != DXLIMPORTOPTION_UPDATE_ELSE_IGNORE;
      if (match != nullptr && replace) {
        if (STATUS error = take_place_of(note, match->id)) return error;
      } else if (match != nullptr && option == DXLIMPORTOPTION_IGNORE_ELSE_CREATE) {
        continue;
      } else if (match == nullptr && !create_unmatched) {
        continue;
      }
      batch.writes.push_back(&note);
      wrote_design_ = true;
    }
    return NOERROR;
  }

  STATUS plan_documents(store::Database::Batch& batch) {
    const WORD option = options_.documents;
    if (option == DXLIMPORTOPTION_IGNORE) return NOERROR;
    for (DocumentPlan& plan : document_plans_) {
      store::Note& note = *plan.note;
      NOTEID existing = 0;
      if (plan.unid) {
        STATUS status = database_->note_id_of(*plan.unid, &existing);
        if (status == ERR_NOT_FOUND) {
          existing = 0;
        } else if (status != NOERROR) {
          return status;
        } else {
          store::NoteRecord record;
          if (database_->record_of(existing, &record) == NOERROR && record.deleted) existing = 0;
        }
      }
      const bool update = option == DXLIMPORTOPTION_UPDATE_ELSE_IGNORE || option == DXLIMPORTOPTION_UPDATE_ELSE_CREATE;
      const bool replace = update || option == DXLIMPORTOPTION_REPLACE_ELSE_IGNORE ||
                           option == DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
      if (existing != 0 && replace) {
        if (update) {
          // Keep the stored items the incoming document does not carry.
          store::Note stored;
          if (STATUS error = database_->read_note(existing, 0, &stored)) return error;
          std::vector<store::Item> merged;
          for (store::Item& item : stored.items) {
            if (!note.has(item.name)) merged.push_back(std::move(item));
          }
          for (store::Item& item : note.items) merged.push_back(std::move(item));
          note.items = std::move(merged);
          note.number_items();
        }
        if (STATUS error = take_place_of(note, existing)) return error;
      } else if (existing != 0 && option != DXLIMPORTOPTION_CREATE) {
        continue;  // IGNORE_ELSE_CREATE keeps the stored one
      } else if (existing == 0 && (option == DXLIMPORTOPTION_REPLACE_ELSE_IGNORE ||
                                   option == DXLIMPORTOPTION_UPDATE_ELSE_IGNORE)) {
        continue;
      } else if (plan.unid && existing == 0) {
        note.oid.File = plan.unid->File;
        note.oid.Note = plan.unid->Note;
      }
      batch.writes.push_back(&note);
      wrote_documents_ = true;
    }
    return NOERROR;
  }

  // The icon note, when database properties or the template's own file name
  // are to be written into it.
  STATUS plan_icon(store::Database::Batch& batch) {
    int64_t db_class = 0;
    if (STATUS error = database_->meta_int("db_class", &db_class)) return error;
    const bool stamp_template = wrote_design_ && db_class == DBCLASS_TEMPLATEFILE;
    const bool properties = options_.replace_db_properties && !info_changes_.empty();
    if (!stamp_template && !properties) return NOERROR;

    std::string info;
    if (STATUS error = database_->meta_bytes("info", &info)) return error;
    char buffer[NSF_INFO_SIZE] = {};
    std::memcpy(buffer, info.data(), std::min(info.size(), sizeof(buffer) - 1));
    if (properties) {
      for (const auto& [what, text] : info_changes_) NSFDbInfoModify(buffer, what, text.c_str());
      batch.meta.emplace_back("info", std::string(buffer));
    }
    store::Note* icon = nullptr;
    NOTEID icon_id = 0;
    STATUS status = database_->special_note_id(NOTE_CLASS_ICON, &icon_id);
    if (status == NOERROR) {
      auto stored = std::make_unique<store::Note>();
      if (STATUS error = database_->read_note(icon_id, 0, stored.get())) return error;
      notes_.push_back(std::move(stored));
      icon = notes_.back().get();
    } else if (status == ERR_SPECIAL_ID) {
      icon = &new_note(NOTE_CLASS_ICON);
    } else {
      return status;
    }
    if (properties) icon->set_text("$TITLE", buffer);
    if (stamp_template) icon->set_text("$TemplateFileName", database_->file().filename().string());
    batch.writes.push_back(icon);
    return NOERROR;
  }

  STATUS store() {
    store::Database::Batch batch;
    if (STATUS error = plan_design(batch)) return error;
    if (STATUS error = plan_documents(batch)) return error;
    if (saw_acl_ && incoming_acl_ && options_.acl != DXLIMPORTOPTION_IGNORE) {
      store::Acl acl;
      if (STATUS error = merged_acl(&acl)) return error;
      batch.meta.emplace_back("acl", store::encode_acl(acl));
      wrote_acl_ = true;
    }
    if (STATUS error = plan_icon(batch)) return error;
    if (wrote_acl_ && database_->access_level < ACL_LEVEL_MANAGER) return refuse_access("the ACL");
    if ((wrote_design_ || !batch.meta.empty()) && database_->access_level < ACL_LEVEL_DESIGNER) {
      return refuse_access("design elements");
    }
    if (wrote_documents_ && database_->access_level < ACL_LEVEL_AUTHOR) return refuse_access("documents");
    if (batch.writes.empty() && batch.meta.empty()) return NOERROR;
    return database_->write_batch(batch, UPDATE_FORCE);
  }

  STATUS refuse_access(const std::string& what) {
    log_.add(Severity::kFatalError, 0, "not authorized to import " + what + " into this database");
    return ERR_NOACCESS;
  }

  std::shared_ptr<store::Database> database_;
  const ImportOptions& options_;
  ImportLog& log_;
  bool failed_ = false;
  bool saw_acl_ = false;
  bool wrote_design_ = false;
  bool wrote_documents_ = false;
  bool wrote_acl_ = false;
  std::vector<std::unique_ptr<store::Note>> notes_;
  std::vector<ExistingDesign> existing_design_;
  std::vector<DesignPlan> design_notes_;
  std::vector<DocumentPlan> document_plans_;
  std::optional<store::Acl> incoming_acl_;
  std::vector<std::pair<WORD, std::string>> info_changes_;
};

}  // namespace

bool ImportLog::has_error() const {
  for (const Entry& entry : entries_) {
    if (entry.severity != Severity::kWarning) return true;
  }
  return false;
}

std::string ImportLog::to_xml(std::string_view comment) const {
  std::string xml = "<?xml version='1.0'?>\n<DXLImporterLog>";
  if (!comment.empty()) xml += "<comment>" + xml_escape(comment) + "</comment>";
  for (const Entry& entry : entries_) {
    const char* tag = entry.severity == Severity::kWarning ? "warning"
                      : entry.severity == Severity::kError ? "error"
                                                           : "fatalerror";
    xml += "\n<";
    xml += tag;
    if (entry.line > 0) xml += " line='" + std::to_string(entry.line) + "'";
    xml += ">" + xml_escape(entry.text) + "</" + tag + ">";
  }
  xml += "\n</DXLImporterLog>\n";
  return xml;
}

STATUS import_dxl(std::string_view dxl, const std::shared_ptr<store::Database>& database,
                  const ImportOptions& options, ImportLog& log) {
  log.clear();
  Importer importer(database, options, log);
  return importer.run(dxl);
}

}  // namespace tarnwick::rt::dxl
