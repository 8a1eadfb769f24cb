/* Distinguished names: canonical ("CN=Jane Doe/OU=Sales/O=Acme/C=US") and
 * abbreviated ("Jane Doe/Sales/Acme/US") forms of hierarchical names, and
 * their components.
 *
 * A name without '/' and without labels is a common (flat) name and is passed
 * through unchanged, as is any name that is not made of CN, up to DN_OUNITS
 * OUs, O and C (other labels, Internet addresses, country-first names).
 * In an abbreviated name of three or more parts, a last part of exactly two
 * letters is the country. '$' escapes '/' and '=' inside a value. Text is
 * LMBCS. Thread-safe. */
#ifndef TARNWICK_DNAME_H
#define TARNWICK_DNAME_H

#include "global.h"

TARNWICK_EXTERN_C_BEGIN

#define DN_DELIM '/'
#define DN_DELIM_RDN '+'
#define DN_DELIM_LDAP ','
#define DN_TYPE_DELIM '='
#define DN_OUNITS 4
#define DN_MAX_COMMENTS 3
#define DN_DCS 16
#define DN_OUS_EXT 12

#define DN_NONSTANDARD 0x0001
#define DN_NONDISTINGUISHED 0x0002
#define DN_CN_OU_RDN 0x0008
#define DN_O_C_RDN 0x0010
#define DN_NONABBREV 0x0020

#define DN_ABBREV_INCLUDEALL 0x0001

/* Components of a parsed name. Pointers point into the parsed input and are
 * not NUL-terminated; OU[0] is the rightmost organisational unit. */
typedef struct {
  DWORD Flags;
  WORD CLength;
  char *C;
  WORD OLength;
  char *O;
  WORD OULength[DN_OUNITS];
  char *OU[DN_OUNITS];
  WORD CNLength;
  char *CN;
  WORD DomainLength;
  char *Domain;
  WORD PRMDLength;
  char *PRMD;
  WORD ADMDLength;
  char *ADMD;
  WORD GLength;
  char *G;
  WORD SLength;
  char *S;
  WORD ILength;
  char *I;
  WORD QLength;
  char *Q;
  WORD PhraseLength;
  char *Phrase;
  WORD LPLength;
  char *LP;
  WORD RLength;
  char *R;
  WORD CMTLength[DN_MAX_COMMENTS];
  char *CMT[DN_MAX_COMMENTS];
  WORD Address821Length;
  char *Address821;
  WORD HierarchyOnlyLength;
  char *HierarchyOnly;
  char *UID;
  WORD UIDLength;
  char *L;
  WORD LLength;
  WORD STLength;
  char *ST;
  WORD STREETLength;
  char *STREET;
  WORD DCLength[DN_DCS];
  char *DC[DN_DCS];
  WORD CN2Length;
  char *CN2;
  WORD OUExtLength[DN_OUS_EXT];
  char *OUExt[DN_OUS_EXT];
} DN_COMPONENTS;

/* Output is NUL-terminated and cut to OutSize-1 bytes (never inside a
 * character). TemplateName may be NULL; it completes names written as
 * "Common Name/". NULL names or buffers, or OutSize 0, give ERR_BAD_PARAM. */
STATUS LNPUBLIC DNCanonicalize(DWORD Flags, const char *TemplateName, const char *InName, char *OutName,
                               WORD OutSize, WORD *OutLength);
STATUS LNPUBLIC DNAbbreviate(DWORD Flags, const char *TemplateName, const char *InName, char *OutName,
                             WORD OutSize, WORD *OutLength);
/* CompSize must be sizeof(DN_COMPONENTS), else ERR_DN_COMP_VERSION. A name
 * with more than DN_OUNITS OUs gives ERR_DN_PARSE. */
STATUS LNPUBLIC DNParse(DWORD Flags, const char *TemplateName, const char *InName, DN_COMPONENTS *Comp,
                        WORD CompSize);

TARNWICK_EXTERN_C_END

#endif /* TARNWICK_DNAME_H */
