// Canonical record layouts (ods.h): each record is a sequence of fields
// written one after another, little-endian, without padding.
#include "ods.h"

#include <cstring>
#include <vector>

#include "agents.h"

namespace {

// A field of a host struct: its offset and its size (2, 4 or 8 bytes; a
// TIMEDATE is two DWORDs, which is the same bytes in little-endian form).
struct Field {
  size_t offset;
  size_t size;
};

struct Layout {
  size_t host_size;
  std::vector<Field> fields;
  size_t canonical_size() const {
    size_t total = 0;
    for (const Field& field : fields) total += field.size;
    return total;
  }
};

Layout assist_layout() {
  Layout layout{sizeof(ODS_ASSISTSTRUCT), {}};
  layout.fields = {
      {offsetof(ODS_ASSISTSTRUCT, wVersion), 2},      {offsetof(ODS_ASSISTSTRUCT, wTriggerType), 2},
      {offsetof(ODS_ASSISTSTRUCT, wSearchType), 2},   {offsetof(ODS_ASSISTSTRUCT, wIntervalType), 2},
      {offsetof(ODS_ASSISTSTRUCT, wInterval), 2},     {offsetof(ODS_ASSISTSTRUCT, dwTime1), 4},
      {offsetof(ODS_ASSISTSTRUCT, dwTime2), 4},       {offsetof(ODS_ASSISTSTRUCT, StartTime), 8},
      {offsetof(ODS_ASSISTSTRUCT, EndTime), 8},       {offsetof(ODS_ASSISTSTRUCT, dwFlags), 4},
      {offsetof(ODS_ASSISTSTRUCT, dwSpare), 4 * 16},
  };
  return layout;
}

// The layout of a type; host_size 0 for an unknown type.
const Layout& layout_of(WORD type) {
  static const Layout kWord{2, {{0, 2}}};
  static const Layout kDword{4, {{0, 4}}};
  static const Layout kNumber{8, {{0, 8}}};
  static const Layout kTimedate{8, {{0, 8}}};
  static const Layout kTimedatePair{16, {{0, 16}}};
  static const Layout kList{2, {{0, 2}}};
  static const Layout kRange{4, {{0, 2}, {2, 2}}};
  static const Layout kUnid{16, {{0, 16}}};
  static const Layout kOid{sizeof(ORIGINATORID),
                           {{offsetof(ORIGINATORID, File), 8},
                            {offsetof(ORIGINATORID, Note), 8},
                            {offsetof(ORIGINATORID, Sequence), 4},
                            {offsetof(ORIGINATORID, SequenceTime), 8}}};
  static const Layout kAssist = assist_layout();
  static const Layout kUnknown{0, {}};
  switch (type) {
    case _WORD:
      return kWord;
    case _DWORD:
      return kDword;
    case _NUMBER:
      return kNumber;
    case _TIMEDATE:
    case _DBID:
      return kTimedate;
    case _TIMEDATE_PAIR:
      return kTimedatePair;
    case _LIST:
      return kList;
    case _RANGE:
      return kRange;
    case _UNIVERSALNOTEID:
      return kUnid;
    case _ORIGINATORID:
      return kOid;
    case _ODS_ASSISTSTRUCT:
      return kAssist;
    default:
      return kUnknown;
  }
}

}  // namespace

extern "C" {

WORD LNPUBLIC ODSLength(WORD type) { return static_cast<WORD>(layout_of(type).canonical_size()); }

void LNPUBLIC ODSReadMemory(void* ppSrc, WORD type, void* pDest, WORD iterations) {
  if (ppSrc == nullptr || pDest == nullptr) return;
  const Layout& layout = layout_of(type);
  if (layout.host_size == 0) return;
  auto** source = static_cast<const unsigned char**>(ppSrc);
  auto* dest = static_cast<unsigned char*>(pDest);
  for (WORD i = 0; i < iterations; ++i) {
    std::memset(dest, 0, layout.host_size);
    for (const Field& field : layout.fields) {
      std::memcpy(dest + field.offset, *source, field.size);
      *source += field.size;
    }
    dest += layout.host_size;
  }
}

void LNPUBLIC ODSWriteMemory(void* ppDest, WORD type, const void* pSrc, WORD iterations) {
  if (ppDest == nullptr || pSrc == nullptr) return;
  const Layout& layout = layout_of(type);
  if (layout.host_size == 0) return;
  auto** dest = static_cast<unsigned char**>(ppDest);
  const auto* source = static_cast<const unsigned char*>(pSrc);
  for (WORD i = 0; i < iterations; ++i) {
    for (const Field& field : layout.fields) {
      std::memcpy(*dest, source + field.offset, field.size);
      *dest += field.size;
    }
    source += layout.host_size;
  }
}

}  // extern "C"
