// Fuzz target for name parsing: DNCanonicalize, DNAbbreviate and DNParse on
// arbitrary bytes. Checks that output stays inside its buffer, is
// NUL-terminated, that parsed parts point into the input, and that both forms
// are stable (converting a converted name again changes nothing).
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <string>

#include "dname.h"
#include "globerr.h"
#include "names/distinguished_name.h"

namespace {

// The name under test, shown when a check fails (the replay run has no crash
// file to look at).
std::string current_name;

void check(bool condition) {
  if (condition) return;
  std::fprintf(stderr, "name check failed for [%s]\n", current_name.c_str());
  std::abort();
}

void check_bounded(const std::string& name, WORD size, bool canonical) {
  std::string buffer(size + 2u, '#');
  WORD length = 0;
  const STATUS error = canonical ? DNCanonicalize(0, nullptr, name.c_str(), buffer.data() + 1, size, &length)
                                 : DNAbbreviate(0, nullptr, name.c_str(), buffer.data() + 1, size, &length);
  check(error == NOERROR);
  check(buffer[0] == '#' && buffer[size + 1u] == '#');
  check(length < size && buffer[1 + length] == '\0');
}

void check_part(const std::string& name, WORD length, const char* pointer) {
  if (pointer == nullptr) {
    check(length == 0);
    return;
  }
  check(pointer >= name.c_str() && pointer + length <= name.c_str() + name.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const WORD out_size = static_cast<WORD>(1 + data[0] % 64);
  std::string name(reinterpret_cast<const char*>(data + 1), size - 1);
  name = name.c_str();  // the API takes C strings
  current_name = name;

  check_bounded(name, out_size, true);
  check_bounded(name, out_size, false);

  using namespace tarnwick::rt::names;
  const std::string canonical = canonicalize(name);
  const std::string abbreviated = abbreviate(name);
  check(canonicalize(canonical) == canonical);
  check(abbreviate(abbreviated) == abbreviated);
  check(same_name(name, canonical));
  if (parse_name(name).is_hierarchical()) check(common_name(canonical) == common_name(name));

  DN_COMPONENTS comp;
  const STATUS error = DNParse(0, nullptr, name.c_str(), &comp, sizeof comp);
  check(error == NOERROR || error == ERR_DN_PARSE);
  if (error == NOERROR) {
    check_part(name, comp.CNLength, comp.CN);
    check_part(name, comp.OLength, comp.O);
    check_part(name, comp.CLength, comp.C);
    for (int i = 0; i < DN_OUNITS; ++i) check_part(name, comp.OULength[i], comp.OU[i]);
    check_part(name, comp.DomainLength, comp.Domain);
    check_part(name, comp.HierarchyOnlyLength, comp.HierarchyOnly);
    check_part(name, comp.Address821Length, comp.Address821);
    for (int i = 0; i < DN_DCS; ++i) check_part(name, comp.DCLength[i], comp.DC[i]);
  }
  return 0;
}
