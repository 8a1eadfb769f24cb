// DNCanonicalize, DNAbbreviate and DNParse over the name parser.
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "core/api_guard.h"
#include "dname.h"
#include "env/environment.h"
#include "globerr.h"
#include "names/distinguished_name.h"
#include "text/lmbcs.h"

namespace tarnwick::rt::names {
namespace {

// Copies `result` into OutName, cut to OutSize-1 bytes on a character
// boundary, and NUL-terminates it.
STATUS write_name(const std::string& result, char* out, WORD out_size, WORD* out_length) {
  const size_t length = text::lmbcs_fit(result, out_size - 1u);
  std::memcpy(out, result.data(), length);
  out[length] = '\0';
  if (out_length != nullptr) *out_length = static_cast<WORD>(length);
  return NOERROR;
}

template <typename Convert>
STATUS convert_name(const char* in_name, char* out_name, WORD out_size, WORD* out_length, Convert convert) {
  if (out_length != nullptr) *out_length = 0;
  if (out_name == nullptr || out_size == 0) return ERR_BAD_PARAM;
  out_name[0] = '\0';
  if (in_name == nullptr) return ERR_BAD_PARAM;
  return guarded([&]() -> STATUS { return write_name(convert(std::string_view(in_name)), out_name, out_size, out_length); });
}

void set_part(WORD& length, char*& pointer, std::string_view value) {
  if (value.empty()) return;
  length = static_cast<WORD>(value.size());
  pointer = const_cast<char*>(value.data());
}

// The labelled components other than CN/OU/O/C (X.400 and LDAP attributes).
void fill_other_labels(const ParsedName& parsed, DN_COMPONENTS& comp) {
  size_t domain_components = 0;
  for (const LabelledValue& part : parsed.labelled) {
    const std::string_view label = part.label;
    if (is_label(label, "G")) set_part(comp.GLength, comp.G, part.value);
    else if (is_label(label, "S")) set_part(comp.SLength, comp.S, part.value);
    else if (is_label(label, "I")) set_part(comp.ILength, comp.I, part.value);
    else if (is_label(label, "Q")) set_part(comp.QLength, comp.Q, part.value);
    else if (is_label(label, "P")) set_part(comp.PRMDLength, comp.PRMD, part.value);
    else if (is_label(label, "A")) set_part(comp.ADMDLength, comp.ADMD, part.value);
    else if (is_label(label, "L")) set_part(comp.LLength, comp.L, part.value);
    else if (is_label(label, "ST")) set_part(comp.STLength, comp.ST, part.value);
    else if (is_label(label, "STREET")) set_part(comp.STREETLength, comp.STREET, part.value);
    else if (is_label(label, "UID")) set_part(comp.UIDLength, comp.UID, part.value);
    else if (is_label(label, "DC") && domain_components < DN_DCS) {
      set_part(comp.DCLength[domain_components], comp.DC[domain_components], part.value);
      ++domain_components;
    }
  }
}

DWORD flags_of(const ParsedName& parsed) {
  switch (parsed.form) {
    case NameForm::kFlat: return DN_NONDISTINGUISHED;
    case NameForm::kNonstandard: return DN_NONSTANDARD;
    case NameForm::kLeadingSlash: return DN_NONABBREV;
    default: return 0;
  }
}

STATUS parse_into(std::string_view name, DN_COMPONENTS& comp) {
  const ParsedName parsed = parse_name(name);
  if (parsed.too_many_org_units) return ERR_DN_PARSE;
  comp.Flags = flags_of(parsed);
  set_part(comp.CNLength, comp.CN, parsed.cn);
  set_part(comp.OLength, comp.O, parsed.o);
  set_part(comp.CLength, comp.C, parsed.c);
  // OU[0] is the rightmost unit (the one next to the O).
  const size_t units = parsed.org_units.size();
  for (size_t i = 0; i < units; ++i) set_part(comp.OULength[i], comp.OU[i], parsed.org_units[units - 1 - i]);
  set_part(comp.DomainLength, comp.Domain, parsed.domain);
  set_part(comp.HierarchyOnlyLength, comp.HierarchyOnly, parsed.hierarchy);
  set_part(comp.PhraseLength, comp.Phrase, parsed.phrase);
  set_part(comp.LPLength, comp.LP, parsed.local_part);
  set_part(comp.Address821Length, comp.Address821, parsed.address821);
  fill_other_labels(parsed, comp);
  return NOERROR;
}

}  // namespace
}  // namespace tarnwick::rt::names

using namespace tarnwick::rt::names;
using tarnwick::rt::guarded;

extern "C" {

STATUS LNPUBLIC DNCanonicalize(DWORD /*Flags*/, const char* TemplateName, const char* InName, char* OutName,
                               WORD OutSize, WORD* OutLength) {
  return convert_name(InName, OutName, OutSize, OutLength, [&](std::string_view name) {
    if (TemplateName != nullptr) return canonicalize(name, TemplateName);
    // The default template is the name this process runs as: the server's.
    if (!name.empty() && name.back() == '/') {
      return canonicalize(name, tarnwick::rt::get_environment("ServerName").value_or(std::string()));
    }
    return canonicalize(name);
  });
}

STATUS LNPUBLIC DNAbbreviate(DWORD /*Flags*/, const char* /*TemplateName*/, const char* InName, char* OutName,
                             WORD OutSize, WORD* OutLength) {
  return convert_name(InName, OutName, OutSize, OutLength, [](std::string_view name) { return abbreviate(name); });
}

STATUS LNPUBLIC DNParse(DWORD /*Flags*/, const char* /*TemplateName*/, const char* InName, DN_COMPONENTS* Comp,
                        WORD CompSize) {
  if (Comp == nullptr || InName == nullptr) return ERR_BAD_PARAM;
  if (CompSize != sizeof(DN_COMPONENTS)) return ERR_DN_COMP_VERSION;
  std::memset(Comp, 0, sizeof *Comp);
  const std::string_view name(InName);
  // Every part length must fit its WORD.
  if (name.size() > MAXWORD) return ERR_DN_PARSE;
  return guarded([&]() -> STATUS {
    return parse_into(name, *Comp);
  });
}

}  // extern "C"
