// On-disk structure copies (ods.h).
#include "ods.h"

#include <cstring>


extern "C" {

WORD LNPUBLIC ODSLength(WORD type) {
  switch (type) {
    case _SHORT:
      return sizeof(WORD);
    case _LONG:
      return sizeof(DWORD);
    case _FLOAT:
      return sizeof(NUMBER);
    case _TIMEDATE:
      return sizeof(TIMEDATE);
    case _TIMEDATE_PAIR:
      return sizeof(TIMEDATE_PAIR);
    case _LIST:
      return sizeof(LIST);
    case _RANGE:
      return sizeof(RANGE);
    case _DBID:
      return sizeof(DBID);
    case _ORIGINATORID:
      return sizeof(ORIGINATORID);
    case _UNIVERSALNOTEID:
      return sizeof(UNIVERSALNOTEID);
    case _ODS_ASSISTSTRUCT:
      return sizeof(ODS_ASSISTSTRUCT);
    default:
      return 0;
  }
}

void LNPUBLIC ODSWriteMemory(void** ppDest, WORD type, const void* pSrc, WORD iterations) {
  if (ppDest == nullptr || *ppDest == nullptr || pSrc == nullptr) return;
  const size_t bytes = static_cast<size_t>(ODSLength(type)) * iterations;
  if (bytes == 0) return;
  std::memcpy(*ppDest, pSrc, bytes);
  *ppDest = static_cast<char*>(*ppDest) + bytes;
}

void LNPUBLIC ODSReadMemory(const void** ppSrc, WORD type, void* pDest, WORD iterations) {
  if (ppSrc == nullptr || *ppSrc == nullptr || pDest == nullptr) return;
  const size_t bytes = static_cast<size_t>(ODSLength(type)) * iterations;
  if (bytes == 0) return;
  std::memcpy(pDest, *ppSrc, bytes);
  *ppSrc = static_cast<const char*>(*ppSrc) + bytes;
}

}  // extern "C"
